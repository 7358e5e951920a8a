#include "mobiledevice/provider/devices/DeviceReference.h"

#include "mobiledevice/provider/devices/Device.h"
#include "mobiledevice/provider/devices/Handles.h"

namespace krl::provider {

am_device* retainDevice(am_device* device) {
    return handles().retain<Device>(device) ? device : nullptr;
}

void releaseDevice(am_device* device) {
    if (const auto released = handles().release<Device>(device)) {
        // A call under way on another thread still holds the device and its connections.
        released->sever();
    }
}

} // namespace krl::provider
