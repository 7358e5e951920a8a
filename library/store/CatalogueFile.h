// The catalogue as a file: {"Ringtones": {file name: entry}} as an XML property list.
#pragma once

#include <KRLVesk/KRLBase.h>

#include <CoreFoundation/CFRef.h>

#include <cstdint>

namespace krl::ringtones {

/// What a catalogue may have at most. A phone of these firmwares holds far less; more is a file
/// that would only exhaust this computer.
inline constexpr uint32_t kMostCatalogueBytes = 64 * 1024 * 1024;
inline constexpr CFIndex kMostEntries = 50000;

/// Reads the catalogue file; null when that fails, when it has more bytes than it may, or when
/// there is no memory for as many as the phone says it has.
cf::CFRef<CFDataRef> readCatalogue(KRTPhoneRef phone, uint32_t sizeBytes);

/// The root of a catalogue; null when the bytes are no XML property list.
cf::CFRef<CFTypeRef> parseCatalogue(CFDataRef bytes);

/// What the root has under "Ringtones"; null when there is no such thing.
CFTypeRef ringtonesOf(CFTypeRef root);

/// Whether an entry of the catalogue is the companion of a ringtone of another type: by its file
/// name and by having exactly two keys, whatever they are.
bool isCompanion(CFStringRef fileName, CFDictionaryRef entry);

/// Writes the catalogue file. Tells nobody whether that went well.
void writeCatalogue(KRTPhoneRef phone, CFDictionaryRef catalogue);

} // namespace krl::ringtones
