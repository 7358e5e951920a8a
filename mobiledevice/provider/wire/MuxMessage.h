// A message of the mux daemon's socket: four 32-bit little-endian words, then a property list.
#pragma once

#include "mobiledevice/provider/wire/PlistRef.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace krl::provider {

struct MuxHeader {
    uint32_t length; // of the whole message
    uint32_t version;
    uint32_t message;
    uint32_t tag; // repeated in the answer
};

/// A dictionary with what every request says; `type` is what it asks for.
PlistRef newMuxRequest(const char* type);

/// A request as it travels.
std::string muxMessage(const PlistRef& request, uint32_t tag);

/// The length of the body behind a header as it came; nothing if that announces no property list or
/// one that is longer than `most`.
std::optional<size_t> muxBodyBytes(const MuxHeader& header, size_t most);

/// A phone on USB; the number is the daemon's, a new one for each plugging.
struct MuxAttachment {
    uint32_t muxId;
    std::string udid;
};

/// The number of a phone in a message; nothing if there is none.
std::optional<uint32_t> muxIdIn(const PlistRef& message);

/// What a message says about a phone that is attached; nothing for a phone that is not on USB, or
/// when something is missing.
std::optional<MuxAttachment> muxAttachmentIn(const PlistRef& message);

/// Whether it is the daemon's word that a request was carried out.
bool isMuxConsent(const PlistRef& message);

} // namespace krl::provider
