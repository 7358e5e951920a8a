// NSS in this process: whether it can be used, and what it is allowed to speak.
#pragma once

namespace krl::nss {

/// Initialises NSS where it is not, without databases and beside whatever an application does with
/// NSS itself; we never end it. To be called before each piece of work, since an application's
/// NSS_Shutdown ends NSS for us too. False when NSS cannot be used here. Any thread.
bool start();

/// Lets streams be made that speak what phones ask for, for as long as one of these lives: SSL 3.0,
/// and the cipher suites below.
///
/// NSS keeps these settings for the whole process, but a socket takes them over when it is made and
/// asks no more afterwards. So the bars are down while one of our streams is made, some microseconds,
/// and up again before its handshake begins. What the rest of the process could do in that moment:
/// give a socket a range of versions that begins below the bar, or make one, which then may use those
/// of the suites below that are switched on for it and barred. A socket that asks for nothing of that
/// kind gets nothing of it, at no time: its versions are NSS's defaults.
///
/// The last to go puts back what is still as we have set it; whatever somebody else has set
/// meanwhile stays. Any thread; start() must have been true.
class OldProtocols {
public:
    OldProtocols();
    ~OldProtocols();
    OldProtocols(const OldProtocols&) = delete;
    OldProtocols& operator=(const OldProtocols&) = delete;
};

/// Lets NSS take an RSA key of so few bits from the other side, while one of these lives: NSS asks
/// in the middle of a handshake. Does nothing where such a key is long enough as it is, which a key
/// of 1024 bits is unless somebody has set the bar higher. Where it is not, any RSA key from 512
/// bits on is taken meanwhile, by every socket of the process. Put back as above.
class ShortKeys {
public:
    explicit ShortKeys(int bits);
    ~ShortKeys();
    ShortKeys(const ShortKeys&) = delete;
    ShortKeys& operator=(const ShortKeys&) = delete;

private:
    const bool isNeeded_;
};

/// The cipher suites of phones with SSL 3.0: AES-128, 3DES and RC4, each with SHA-1 and RSA.
inline constexpr int kOldSuites[] = {0x002F, 0x000A, 0x0005};

/// Those of phones that speak TLS, beside the old ones, best first.
inline constexpr int kModernSuites[] = {0xC02F, 0xC030, 0xC013, 0xC014, 0x009C, 0x0035};

/// Whether this NSS still speaks SSL 3.0. Found by having it write the first message of such a
/// handshake, since what it says of itself is no guide. Any thread; start() must have been true.
bool speaksSsl3();

} // namespace krl::nss
