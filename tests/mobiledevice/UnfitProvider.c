/* A provider in C. Whole, but for one thing that a macro names. */

#include <MobileDevice/Provider.h>

static int32_t connectDevice(am_device* device) {
    (void)device;
    return 4711;
}

static int32_t anything(void) {
    return 0;
}

const MobileDeviceTable* MobileDeviceProviderTable(void) {
    static MobileDeviceTable table;
    table.version = MOBILEDEVICE_PROVIDER_VERSION;
    table.size = sizeof table;
#define FILL(function) table.function = (__typeof__(table.function))(void (*)(void))anything;
    MOBILEDEVICE_FUNCTIONS(FILL)
    table.AMDeviceConnect = connectDevice;
#if defined(LaterVersion)
    ++table.version;
#elif defined(EarlierVersion)
    --table.version;
#elif defined(SmallerTable)
    table.size -= (uint32_t)sizeof(void*);
#elif defined(LargerTable)
    table.size += (uint32_t)sizeof(void*);
#elif defined(NoTable)
    return NULL;
#elif defined(MissingFunction)
    table.AFCKeyValueClose = NULL;
#elif defined(MissingOptionalFunction)
    table.AMDeviceSetCallTimeout = NULL;
#endif
    return &table;
}
