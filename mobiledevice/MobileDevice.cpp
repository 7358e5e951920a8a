#include <MobileDevice/MobileDevice.h>

decltype(AMDeviceNotificationSubscribe) AMDeviceNotificationSubscribe = nullptr;
decltype(AMDShutdownNotificationProxy) AMDShutdownNotificationProxy = nullptr;
decltype(AMDeviceRetain) AMDeviceRetain = nullptr;
decltype(AMDeviceRelease) AMDeviceRelease = nullptr;
decltype(AMDeviceConnect) AMDeviceConnect = nullptr;
decltype(AMDeviceDisconnect) AMDeviceDisconnect = nullptr;
decltype(AMDeviceIsPaired) AMDeviceIsPaired = nullptr;
decltype(AMDeviceValidatePairing) AMDeviceValidatePairing = nullptr;
decltype(AMDeviceStartSession) AMDeviceStartSession = nullptr;
decltype(AMDeviceStopSession) AMDeviceStopSession = nullptr;
decltype(AMDeviceStartService) AMDeviceStartService = nullptr;
decltype(AMDeviceCopyValue) AMDeviceCopyValue = nullptr;
decltype(AMDPostNotification) AMDPostNotification = nullptr;
decltype(AMDeviceSetCallTimeout) AMDeviceSetCallTimeout = nullptr;
decltype(AMDevicePair) AMDevicePair = nullptr;
decltype(AMDeviceUnpair) AMDeviceUnpair = nullptr;
decltype(AMDeviceCheckSessionSupport) AMDeviceCheckSessionSupport = nullptr;

decltype(AFCConnectionOpen) AFCConnectionOpen = nullptr;
decltype(AFCConnectionClose) AFCConnectionClose = nullptr;
decltype(AFCDirectoryCreate) AFCDirectoryCreate = nullptr;
decltype(AFCDirectoryOpen) AFCDirectoryOpen = nullptr;
decltype(AFCDirectoryRead) AFCDirectoryRead = nullptr;
decltype(AFCDirectoryClose) AFCDirectoryClose = nullptr;
decltype(AFCRemovePath) AFCRemovePath = nullptr;
decltype(AFCRenamePath) AFCRenamePath = nullptr;
decltype(AFCFileRefOpen) AFCFileRefOpen = nullptr;
decltype(AFCFileRefRead) AFCFileRefRead = nullptr;
decltype(AFCFileRefWrite) AFCFileRefWrite = nullptr;
decltype(AFCFileRefClose) AFCFileRefClose = nullptr;
decltype(AFCFileRefLock) AFCFileRefLock = nullptr;
decltype(AFCFileRefUnlock) AFCFileRefUnlock = nullptr;
decltype(AFCFileInfoOpen) AFCFileInfoOpen = nullptr;
decltype(AFCDeviceInfoOpen) AFCDeviceInfoOpen = nullptr;
decltype(AFCKeyValueRead) AFCKeyValueRead = nullptr;
decltype(AFCKeyValueClose) AFCKeyValueClose = nullptr;
