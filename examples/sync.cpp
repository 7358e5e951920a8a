// Makes a phone hold exactly the given ringtones (and the m4r files that came from elsewhere),
// through the object interface: an asynchronous sync with progress, cancelled by Ctrl-C.
//
//     sync FILE...
//
// Waits for the first phone for half a minute.
#include "text.h"

#include <CoreFoundation/CFRef.h>
#include <KRLVesk/KRLVesk.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

using krl::cf::adopt;
using krl::cf::CFRef;

namespace {

CFRef<CFStringRef> string(const std::string& utf8) {
    return adopt(CFStringCreateWithCString(nullptr, utf8.c_str(), kCFStringEncodingUTF8));
}

std::string text(CFStringRef string) {
    char buffer[1024];
    return shown(string, buffer, sizeof buffer);
}

/// A ringtone named after its file; the name is its key.
void addFile(CFMutableDictionaryRef list, const std::filesystem::path& file) {
    const auto tone = adopt(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                      &kCFTypeDictionaryValueCallBacks));
    const auto name = string(file.stem().string());
    const auto uuid = adopt(CFUUIDCreate(nullptr));
    CFDictionarySetValue(tone.get(), KRTRingtoneName, name.get());
    CFDictionarySetValue(tone.get(), KRTFileKey,
                         adopt(CFUUIDCreateString(nullptr, uuid.get())).get());
    CFDictionarySetValue(tone.get(), KRTLocalPath, string(file.string()).get());
    CFDictionarySetValue(tone.get(), CFSTR("FileType"),
                         string(file.extension().string().substr(1)).get());
    CFDictionarySetValue(list, name.get(), tone.get());
}

/// Keeps the first phone that comes.
class FirstPhone : public KRTPhoneManagerDelegate {
public:
    void phoneConnected(const std::shared_ptr<KRTPhone>& connected) override {
        if (connected && !phone) {
            phone = connected;
            CFRunLoopStop(CFRunLoopGetCurrent());
        }
    }

    void phoneRemoved(const std::shared_ptr<KRTPhone>&) override {}

    std::shared_ptr<KRTPhone> phone;
};

std::atomic<bool> isInterrupted = false;

/// Prints progress. Called on the sync's thread, where it answers each report.
class Progress : public KRTRingtoneManagerDelegate {
public:
    explicit Progress(KRTRingtoneManager& tones) : tones_(tones) {}

    void syncStatus(int32_t status, int32_t mode, uint32_t max, uint32_t value,
                    CFStringRef message) override {
        if (mode == 5 && status == 1) {
            std::cout << "uploading " << value + 1 << " of " << max << ": " << text(message)
                      << std::endl;
        }
        if (isInterrupted) {
            tones_.cancelSync();
        } else {
            tones_.continueSync();
        }
    }

    void reportError(CFErrorRef error, bool) override {
        hasFailed = true;
        const auto code = static_cast<int32_t>(CFErrorGetCode(error));
        const char* const words = KRTErrorTextForStatus(code);
        std::cerr << "failed: code " << code << (words != nullptr ? ", " : "")
                  << (words != nullptr ? words : "") << std::endl;
    }

    bool hasFailed = false;

private:
    KRTRingtoneManager& tones_;
};

/// The completion notification, on the sync's thread: lets the main thread go on.
void syncIsComplete(CFNotificationCenterRef, void* mainLoop, CFNotificationName, const void*,
                    CFDictionaryRef) {
    CFRunLoopStop(static_cast<CFRunLoopRef>(mainLoop));
}

/// @return whether the phone holds what was asked for
bool syncList(const std::shared_ptr<KRTRingtoneManager>& tones, CFDictionaryRef wanted) {
    tones->compareList(wanted);
    tones->setAsyncMode(true);
    const auto progress = std::make_shared<Progress>(*tones);
    const CFNotificationCenterRef center = CFNotificationCenterGetLocalCenter();
    CFNotificationCenterAddObserver(center, CFRunLoopGetCurrent(), syncIsComplete,
                                    CFSTR("com.korvane.KRLRingtoneSyncComplete"), tones.get(),
                                    CFNotificationSuspensionBehaviorDeliverImmediately);
    tones->syncCurrentListToPhone(progress);
    CFRunLoopRun();
    CFNotificationCenterRemoveEveryObserver(center, CFRunLoopGetCurrent());
    if (isInterrupted) {
        std::cerr << "cancelled: the phone shows the ringtones that it had before" << std::endl;
    }
    return !progress->hasFailed && !isInterrupted;
}

} // namespace

int main(int argc, char** argv) {
    if (!KRTVeskInitLight()) {
        std::cerr << "phones cannot be reached: MobileDevice.so is missing" << std::endl;
        return 1;
    }
    const auto wanted = adopt(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                                        &kCFTypeDictionaryValueCallBacks));
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path file = argv[i];
        if (!file.has_extension()) {
            std::cerr << file << " has no extension" << std::endl;
            return 2;
        }
        addFile(wanted.get(), std::filesystem::absolute(file));
    }

    std::signal(SIGINT, [](int) { isInterrupted = true; });
    std::cout << "waiting for a phone" << std::endl;
    const auto manager = KRTPhoneManager::sharedManager();
    const auto first = std::make_shared<FirstPhone>();
    manager->addDelegate(first);
    CFRunLoopRunInMode(kCFRunLoopDefaultMode, 30, false);

    bool isDone = false;
    if (!first->phone) {
        std::cerr << "no phone" << std::endl;
    } else {
        const auto tones = first->phone->ringtoneManager();
        isDone = syncList(tones, wanted.get());
        const auto names = tones->currentRingtonesManagedByNameOnly();
        for (CFIndex i = 0; i < CFArrayGetCount(names.get()); ++i) {
            std::cout << text(static_cast<CFStringRef>(CFArrayGetValueAtIndex(names.get(), i)))
                      << std::endl;
        }
    }
    manager->shutdown();
    return isDone ? 0 : 1;
}
