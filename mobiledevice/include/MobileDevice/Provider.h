/**
 * @file
 * What a provider of MobileDevice is: a shared object that exports one function,
 * MobileDeviceProviderTable, which hands over a table of all functions of MobileDevice.h.
 *
 * The library looks for it, under the name MobileDevice.so, in its own folder and then in the
 * folder KRLVesk inside that one.
 */
#ifndef MOBILEDEVICE_PROVIDER_H
#define MOBILEDEVICE_PROVIDER_H

#include <MobileDevice/MobileDevice.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Rises whenever a function is added, dropped or means something else. */
#define MOBILEDEVICE_PROVIDER_VERSION 4u

/** X(function) for every function that a provider must have. */
#define MOBILEDEVICE_REQUIRED_FUNCTIONS(X)                                                         \
    X(AMDeviceNotificationSubscribe)                                                               \
    X(AMDShutdownNotificationProxy)                                                                \
    X(AMDeviceRetain)                                                                              \
    X(AMDeviceRelease)                                                                             \
    X(AMDeviceConnect)                                                                             \
    X(AMDeviceDisconnect)                                                                          \
    X(AMDeviceIsPaired)                                                                            \
    X(AMDeviceValidatePairing)                                                                     \
    X(AMDeviceStartSession)                                                                        \
    X(AMDeviceStopSession)                                                                         \
    X(AMDeviceStartService)                                                                        \
    X(AMDeviceCopyValue)                                                                           \
    X(AMDPostNotification)                                                                         \
    X(AFCConnectionOpen)                                                                           \
    X(AFCConnectionClose)                                                                          \
    X(AFCDirectoryCreate)                                                                          \
    X(AFCDirectoryOpen)                                                                            \
    X(AFCDirectoryRead)                                                                            \
    X(AFCDirectoryClose)                                                                           \
    X(AFCRemovePath)                                                                               \
    X(AFCRenamePath)                                                                               \
    X(AFCFileRefOpen)                                                                              \
    X(AFCFileRefRead)                                                                              \
    X(AFCFileRefWrite)                                                                             \
    X(AFCFileRefClose)                                                                             \
    X(AFCFileRefLock)                                                                              \
    X(AFCFileRefUnlock)                                                                            \
    X(AFCFileInfoOpen)                                                                             \
    X(AFCDeviceInfoOpen)                                                                           \
    X(AFCKeyValueRead)                                                                             \
    X(AFCKeyValueClose)

/** X(function) for every function that may be null in a provider's table. */
#define MOBILEDEVICE_OPTIONAL_FUNCTIONS(X)                                                         \
    X(AMDeviceSetCallTimeout)                                                                      \
    X(AMDevicePair)                                                                                \
    X(AMDeviceUnpair)                                                                              \
    X(AMDeviceCheckSessionSupport)                                                                 \
    X(AMDeviceCancelCalls)                                                                         \
    X(AMDeviceGetTransferredBytes)                                                                 \
    X(AMDeviceWaitForAttached)

/** X(function) for every function of a table, in its order. */
#define MOBILEDEVICE_FUNCTIONS(X)                                                                  \
    MOBILEDEVICE_REQUIRED_FUNCTIONS(X)                                                             \
    MOBILEDEVICE_OPTIONAL_FUNCTIONS(X)

#ifdef __cplusplus
/** One entry of the table. */
#define MOBILEDEVICE_TABLE_ENTRY(function) decltype(::function) function;
#else
#define MOBILEDEVICE_TABLE_ENTRY(function) __typeof__(function) function;
#endif

/** The functions, each under its own name. */
typedef struct MobileDeviceTable {
    uint32_t version; /**< MOBILEDEVICE_PROVIDER_VERSION */
    uint32_t size;    /**< sizeof(MobileDeviceTable) */
    MOBILEDEVICE_FUNCTIONS(MOBILEDEVICE_TABLE_ENTRY)
} MobileDeviceTable;

/** The type of the one function that a provider exports. The table lives as long as
 *  the process; null says that the provider cannot work here. */
typedef const MobileDeviceTable* (*MobileDeviceProviderTableFunction)(void);
/** The name of that function. */
#define MOBILEDEVICE_PROVIDER_TABLE_NAME "MobileDeviceProviderTable"

/** To be defined by a provider. */
MOBILEDEVICE_EXTERN const MobileDeviceTable* MobileDeviceProviderTable(void);

#ifdef __cplusplus
}
#endif

#endif
