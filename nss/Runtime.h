// NSS in this process: whether it can be used, and what it is allowed to speak.
#pragma once

namespace krl::nss {

/// Initialises NSS where it is not, without databases and beside whatever an application does with
/// NSS itself; we never end it. To be called before each piece of work, since an application's
/// NSS_Shutdown ends NSS for us too. False when NSS cannot be used here. Any thread.
bool start();

/// Lets NSS speak what phones ask for, for as long as one of these lives: SSL 3.0, RSA keys from 512
/// bits on, and the cipher suites below.
///
/// NSS keeps these settings for the whole process. They are bars, not defaults: while they are down,
/// no socket of the application speaks anything that it has not asked for by itself, save that an
/// RSA key between 512 bits and the usual least size would be taken. The first of them to come
/// remembers how the bars stood and the last to go puts them back, so they are down for the length
/// of a handshake only. Any thread; start() must have been true.
class OldProtocols {
public:
    OldProtocols();
    ~OldProtocols();
    OldProtocols(const OldProtocols&) = delete;
    OldProtocols& operator=(const OldProtocols&) = delete;
};

/// The cipher suites of phones with SSL 3.0: AES-128, 3DES and RC4, each with SHA-1 and RSA.
inline constexpr int kOldSuites[] = {0x002F, 0x000A, 0x0005};

/// Those of phones that speak TLS, beside the old ones, best first.
inline constexpr int kModernSuites[] = {0xC02F, 0xC030, 0xC013, 0xC014, 0x009C, 0x0035};

/// Whether this NSS still speaks SSL 3.0. Found by having it write the first message of such a
/// handshake, since what it says of itself is no guide. Any thread; start() must have been true.
bool speaksSsl3();

} // namespace krl::nss
