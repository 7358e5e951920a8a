#include "library/discovery/NewsOnTheirWay.h"
#include "library/phone/RecordLifetime.h"

#include <KRLVesk/KRTPhoneManager.h>

#include <algorithm>
#include <utility>

using Delegate = std::shared_ptr<KRTPhoneManagerDelegate>;
using Delegates = std::vector<Delegate>;
using Phone = std::shared_ptr<KRTPhone>;

namespace {

/// The shared manager. Never destroyed with the process: whatever reaches the phones may go before
/// it.
std::shared_ptr<KRTPhoneManager>& gKRTPhoneManager() {
    static auto* const manager = new std::shared_ptr<KRTPhoneManager>;
    return *manager;
}

bool hasCore() {
    return KRTGetConnectedPhoneCount() >= 0;
}

bool contains(const Delegates& delegates, const Delegate& delegate) {
    return std::find(delegates.begin(), delegates.end(), delegate) != delegates.end();
}

template <typename Matches>
Phone firstPhone(const std::vector<Phone>& phones, Matches matches) {
    const auto found = std::find_if(phones.begin(), phones.end(), matches);
    return found == phones.end() ? nullptr : *found;
}

CFTypeRef nameIn(CFDictionaryRef information) {
    return information == nullptr ? nullptr : CFDictionaryGetValue(information, KRTPhoneNameKey);
}

KRTPhoneManager& managerOf(void* context) {
    return *static_cast<KRTPhoneManager*>(context);
}

} // namespace

extern "C" {

static void __krt_phone_connected(void* context, KRTPhoneRef phone) noexcept {
    managerOf(context)._phoneConnected(phone);
}

static void __krt_phone_removed(void* context, KRTPhoneRef phone) noexcept {
    managerOf(context)._phoneRemoved(phone);
}
}

KRTPhoneManagerDelegate::~KRTPhoneManagerDelegate() = default;

// sharedManager
std::shared_ptr<KRTPhoneManager> KRTPhoneManager::sharedManager() {
    if (!gKRTPhoneManager()) {
        gKRTPhoneManager() = init();
    }
    return gKRTPhoneManager();
}

// init
std::shared_ptr<KRTPhoneManager> KRTPhoneManager::init() {
    return std::shared_ptr<KRTPhoneManager>(new KRTPhoneManager);
}

KRTPhoneManager::KRTPhoneManager() : news_(std::make_unique<krl::discovery::NewsOnTheirWay>()) {
    KRTPhoneManagerInit();
    _delegateList.reserve(1);
    _connectedPhones.reserve(1);
}

// dealloc
KRTPhoneManager::~KRTPhoneManager() {
    _delegateList.clear();
    _connectedPhones.clear();
    // After shutdown, another manager may be at work by now.
    if (!isShutDown_) {
        KRTPhoneManagerShutdown();
    }
}

// addDelegate:
void KRTPhoneManager::addDelegate(std::shared_ptr<KRTPhoneManagerDelegate> delegate) {
    if (!delegate || isShutDown_) {
        return;
    }
    _delegateList.push_back(std::move(delegate));
    if (_delegateList.size() == 1) {
        _beginPhoneSearch();
    }
}

// removeDelegate:
void KRTPhoneManager::removeDelegate(const std::shared_ptr<KRTPhoneManagerDelegate>& delegate) {
    // A copy, as the argument may be lent from the list.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const Delegate removed = delegate;
    std::erase(_delegateList, removed);
    if (_delegateList.empty()) {
        _endPhoneSearch();
    }
}

// phones
std::vector<std::shared_ptr<KRTPhone>> KRTPhoneManager::phones() const {
    return _connectedPhones;
}

// phoneForInfo:
std::shared_ptr<KRTPhone> KRTPhoneManager::phoneForInfo(CFDictionaryRef information) const {
    const CFTypeRef wanted = nameIn(information);
    return firstPhone(_connectedPhones, [wanted](const Phone& phone) {
        // Nothing is known any more of a phone that was unplugged.
        if (krl::phone::isReleased(phone->_phoneRef())) {
            return false;
        }
        // Contract: the phone's name is what compares, so that a phone without one goes with any
        // information. [PhoneManagerObject.APhoneWithoutANameGoesWithAnyInformation]
        const auto known = phone->phoneInformation();
        const CFTypeRef name = nameIn(known.get());
        return name == nullptr || CFEqual(name, wanted);
    });
}

// shutdown
void KRTPhoneManager::shutdown() {
    // By now the core, and the shared manager, may be another object's.
    if (isShutDown_) {
        return;
    }
    isShutDown_ = true;
    const auto self = shared_from_this();
    _delegateList.clear();
    _endPhoneSearch();
    KRTPhoneManagerShutdown();
    gKRTPhoneManager() = nullptr;
}

// _beginPhoneSearch
void KRTPhoneManager::_beginPhoneSearch() {
    if (_delegateList.empty() || !hasCore()) {
        return;
    }
    _internalRef = KRTPhoneManagerAddDelegate(this, __krt_phone_connected, __krt_phone_removed);
    isSearching_ = _internalRef != nullptr;
}

// _endPhoneSearch
void KRTPhoneManager::_endPhoneSearch() {
    // Contract: the reference is not cleared, so it does not tell whether a search is running.
    // [PhoneManagerObject.ShutdownWithoutASearchIsHarmless]
    if (isSearching_ && hasCore()) {
        KRTPhoneManagerRemoveDelegate(_internalRef);
    }
    isSearching_ = false;
}

void KRTPhoneManager::tellAll(KRTPhoneRef phoneRef, const Message& message) {
    const Delegates told = _delegateList;
    auto next = told.begin();
    news_->tell(phoneRef, [&] {
        next = std::find_if(next, told.end(), [this](const Delegate& delegate) {
            return contains(_delegateList, delegate);
        });
        if (next == told.end()) {
            return false;
        }
        message(**next++);
        return true;
    });
}

// _phoneConnected:
void KRTPhoneManager::_phoneConnected(KRTPhoneRef phoneRef) {
    const auto self = shared_from_this();
    Phone phone;
    if (phoneRef != nullptr) {
        phone = KRTPhone::_phoneWithPhoneRef(phoneRef);
        _connectedPhones.push_back(phone);
    }
    tellAll(phoneRef,
            [&phone](KRTPhoneManagerDelegate& delegate) { delegate.phoneConnected(phone); });
}

// _phoneRemoved:
void KRTPhoneManager::_phoneRemoved(KRTPhoneRef phoneRef) {
    const auto self = shared_from_this();
    // Contract: the phone stays in the list.
    // [PhoneManagerObject.ARemovalBringsTheSameObjectWhichStaysInTheList]
    if (const Phone phone = _phoneForPhoneRef(phoneRef)) {
        news_->finish(phoneRef);
        tellAll(phoneRef,
                [&phone](KRTPhoneManagerDelegate& delegate) { delegate.phoneRemoved(phone); });
    }
}

// _phoneForDevice:
std::shared_ptr<KRTPhone> KRTPhoneManager::_phoneForDevice(am_device* device) const {
    return firstPhone(_connectedPhones,
                      [device](const Phone& phone) { return phone->_rawDevice() == device; });
}

// _phoneForPhoneRef:
std::shared_ptr<KRTPhone> KRTPhoneManager::_phoneForPhoneRef(KRTPhoneRef phoneRef) const {
    return firstPhone(_connectedPhones,
                      [phoneRef](const Phone& phone) { return phone->_phoneRef() == phoneRef; });
}
