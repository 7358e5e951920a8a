// Both libraries, and the C++ interface.
#include <CoreFoundation/CFRef.h>
#include <KRLVesk/KRLVesk.h>

#include <cstdio>
#include <vector>

int main() {
    const std::shared_ptr<KRTPhoneManager> manager = KRTPhoneManager::sharedManager();
    const auto name =
        krl::cf::adopt(CFStringCreateWithCString(nullptr, "x", kCFStringEncodingUTF8));
    std::printf("%d %ld\n", manager != nullptr, CFStringGetLength(name.get()));
    return manager != nullptr ? 0 : 1;
}
