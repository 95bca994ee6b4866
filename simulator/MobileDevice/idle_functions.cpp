// What a device library need not do for the notifier to work: these functions answer zero or null.
// Not part of the simulator, but of programs with a small device library of their own, which may
// define the weak ones itself.
#include "platform/MobileDevice.h"

[[gnu::weak]] int AMDeviceNotificationSubscribe(AMDeviceNotificationCallback, unsigned int,
                                                unsigned int, void *,
                                                AMDeviceNotificationRef * subscription) {
    *subscription = nullptr;
    return 0;
}

[[gnu::weak]] int AMDeviceNotificationUnsubscribe(AMDeviceNotificationRef) {
    return 0;
}

AMRError AMRestoreEnableFileLogging(char const *) {
    return kAMRSuccess;
}

[[gnu::weak]] int AMRestorableDeviceUnregisterForNotifications(int) {
    return 0;
}

uint16_t AMRestorableDeviceGetProductID(AMRestorableDeviceRef) {
    return 0;
}

uint32_t AMRestorableDeviceGetBoardID(AMRestorableDeviceRef) {
    return 0;
}

uint32_t AMRestorableDeviceGetChipID(AMRestorableDeviceRef) {
    return 0;
}

uint32_t AMRestorableDeviceGetProductType(AMRestorableDeviceRef) {
    return 0;
}

uint32_t AMRestorableDeviceGetFusingInfo(AMRestorableDeviceRef) {
    return 0;
}

uint32_t AMRestorableDeviceGetLocationID(AMRestorableDeviceRef) {
    return 0;
}

CFStringRef AMRestorableDeviceCopySerialNumber(AMRestorableDeviceRef) {
    return nullptr;
}

CFStringRef AMRestorableDeviceCopyProductString(AMRestorableDeviceRef) {
    return nullptr;
}

AMRecoveryModeDeviceRef AMRestorableDeviceCopyRecoveryModeDevice(AMRestorableDeviceRef) {
    return nullptr;
}

AMRError AMRecoveryModeDeviceSetAutoBoot(AMRecoveryModeDeviceRef, unsigned char) {
    return kAMRSuccess;
}

AMRError AMRecoveryModeDeviceReboot(AMRecoveryModeDeviceRef) {
    return kAMRSuccess;
}
