#include "library/errors/ErrorObject.h"
#include "library/phone/RecordLifetime.h"

#include <CoreFoundation/CFText.h>
#include <KRLVesk/KRLException.h>
#include <KRLVesk/KRTPhone.h>
#include <KRLVesk/KRTRingtoneManager.h>

#include <cstddef>
#include <optional>
#include <string>

using krl::cf::adopt;
using krl::cf::CFRef;

namespace {

/// A path as the functions take it; null for a null string and for one that no path can be: with a
/// lone surrogate or a zero in it.
class PathText {
public:
    explicit PathText(CFStringRef path) : text_(krl::cf::utf8(path)) {}

    operator const char*() const { return text_ ? text_->c_str() : nullptr; }

private:
    std::optional<std::string> text_;
};

/// The error object of a function that has returned; null after success.
CFRef<CFErrorRef> errorUnlessDone(int result) {
    // Contract: whatever the error domain is elsewhere, a phone's is this one.
    // [PhoneObjectFailure.IsAnErrorObjectOfTheRecordWhichIsNotCleared]
    return result == 1 ? CFRef<CFErrorRef>()
                       : krl::errorObjectFromRecord(CFSTR("com.korvane.vesk"));
}

} // namespace

KRTPhone::KRTPhone(KRTPhoneRef phoneRef) : _phone(phoneRef) {
    krl::phone::addObject(_phone);
}

// dealloc
KRTPhone::~KRTPhone() {
    KRTPhoneRelease(_phone);
    krl::phone::dropObject(_phone);
}

// _phoneWithPhoneRef:
std::shared_ptr<KRTPhone> KRTPhone::_phoneWithPhoneRef(KRTPhoneRef phoneRef) {
    return _initWithPhoneRef(phoneRef);
}

// _initWithPhoneRef:
std::shared_ptr<KRTPhone> KRTPhone::_initWithPhoneRef(KRTPhoneRef phoneRef) {
    return phoneRef == nullptr ? nullptr : std::shared_ptr<KRTPhone>(new KRTPhone(phoneRef));
}

// _phoneWithDevice:
std::shared_ptr<KRTPhone> KRTPhone::_phoneWithDevice(am_device*) {
    // Contract: the initialiser that this would call does not exist, and nothing calls this.
    // [PhoneObject.IsNeverMadeOfADevice]
    throw KRLException("UnrecognizedSelector",
                       "-[KRTPhone _initWithDevice:]: unrecognized selector sent to instance");
}

// _rawDevice
am_device* KRTPhone::_rawDevice() const {
    return krl::phone::deviceOf(_phone);
}

// _phoneRef
KRTPhoneRef KRTPhone::_phoneRef() const {
    return _phone;
}

// setDelegate:
void KRTPhone::setDelegate(const std::shared_ptr<void>&) {}

// delegate
std::shared_ptr<void> KRTPhone::delegate() const {
    return nullptr;
}

// open
CFRef<CFErrorRef> KRTPhone::open() {
    return errorUnlessDone(KRTPhoneOpen(_phone));
}

// close
void KRTPhone::close() {
    KRTPhoneClose(_phone);
}

// _startFileService
void KRTPhone::_startFileService() {}

// _endFileService
void KRTPhone::_endFileService() {}

// beginSync
int KRTPhone::beginSync() {
    return KRTPhoneBeginSync(_phone);
}

// endSync
int KRTPhone::endSync() {
    return KRTPhoneEndSync(_phone);
}

// phoneInformation
CFRef<CFDictionaryRef> KRTPhone::phoneInformation() const {
    return krl::phone::informationOf(_phone);
}

// updateInformation
void KRTPhone::updateInformation() {
    KRTPhoneUpdateInformation(_phone);
}

// postEvilUpdate
int KRTPhone::postEvilUpdate() const {
    return KRTPhonePostUpdate(_phone);
}

// phoneFirmwareVersion
int KRTPhone::phoneFirmwareVersion() const {
    return KRTPhoneFirmwareVersion(_phone);
}

// ringtoneManager
std::shared_ptr<KRTRingtoneManager> KRTPhone::ringtoneManager() {
    if (!_ringtones) {
        // Contract: a store record of its own, beside the one of KRTPhoneGetRingtoneManager.
        // [PhoneObject.ItsRingtoneManagerHasAStoreRecordOfItsOwn]
        _ringtones =
            KRTRingtoneManager::_initWithRingtoneManagerRef(KRTRingtoneManagerForPhone(_phone));
    }
    return _ringtones;
}

// size:ofFileAtPath:
CFRef<CFErrorRef> KRTPhone::size(uint32_t* size, CFStringRef ofFileAtPath) {
    return errorUnlessDone(KRTPhoneSizeOfFileAtPath(_phone, PathText(ofFileAtPath), size));
}

// readFileAtPath:into:
CFRef<CFErrorRef> KRTPhone::readFileAtPath(CFStringRef path, CFRef<CFMutableDataRef>* into) {
    uint32_t sizeBytes = 0;
    if (auto error = size(&sizeBytes, path)) {
        return error;
    }
    // Contract: handed out before the file is read, and not cut when fewer bytes come.
    // [PhoneObject.DataIsNotCutWhenFewerBytesCome]
    *into = adopt(CFDataCreateMutable(nullptr, 0));
    CFDataSetLength(into->get(), sizeBytes);
    return errorUnlessDone(KRTPhoneReadFileAtPath(
        _phone, PathText(path), CFDataGetMutableBytePtr(into->get()), &sizeBytes));
}

// writeData:toFileAtPath:
CFRef<CFErrorRef> KRTPhone::writeData(CFDataRef data, CFStringRef toFileAtPath) {
    const UInt8* const bytes = data == nullptr ? nullptr : CFDataGetBytePtr(data);
    const CFIndex count = data == nullptr ? 0 : CFDataGetLength(data);
    return errorUnlessDone(KRTPhoneWriteDataToFileAtPath(_phone, PathText(toFileAtPath), bytes,
                                                         static_cast<uintptr_t>(count)));
}

// renameFileAtPath:to:
CFRef<CFErrorRef> KRTPhone::renameFileAtPath(CFStringRef path, CFStringRef to) {
    return errorUnlessDone(KRTPhoneRenameObjectAtPath(_phone, PathText(path), PathText(to)));
}

// removeObjectAtPath:
CFRef<CFErrorRef> KRTPhone::removeObjectAtPath(CFStringRef path) {
    return errorUnlessDone(KRTPhoneRemoveObjectAtPath(_phone, PathText(path)));
}

// listDirectoryAtPath:
CFRef<CFArrayRef> KRTPhone::listDirectoryAtPath(CFStringRef path) {
    return adopt(KRTPhoneListDirectoryAtPath(_phone, PathText(path)));
}

// createDirectoryAtPath:
CFRef<CFErrorRef> KRTPhone::createDirectoryAtPath(CFStringRef path) {
    return errorUnlessDone(KRTPhoneCreateDirectoryAtPath(_phone, PathText(path)));
}
