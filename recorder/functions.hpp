// The functions that take the place of the library's. Each passes the call on as it is, and records
// it; no lock is held meanwhile, and callbacks come on the library's threads.
#pragma once

#include "platform/MobileDevice.h"

extern "C" {

int recorded_AMDeviceNotificationSubscribe(AMDeviceNotificationCallback callback,
                                           unsigned int minimum_interface_speed,
                                           unsigned int connection_type, void * context,
                                           AMDeviceNotificationRef * subscription);
int recorded_AMDeviceNotificationUnsubscribe(AMDeviceNotificationRef subscription);
AMRError recorded_AMRestoreEnableFileLogging(char const * path);
CFMutableDictionaryRef recorded_AMRestoreCreateDefaultOptions(CFAllocatorRef allocator);
int recorded_AMRestorableDeviceRegisterForNotifications(
    AMRestorableDeviceNotificationCallback callback, void * context, CFErrorRef * error);
int recorded_AMRestorableDeviceUnregisterForNotifications(int client_id);
AMRestorableDeviceState recorded_AMRestorableDeviceGetState(AMRestorableDeviceRef device);
uint64_t recorded_AMRestorableDeviceGetECID(AMRestorableDeviceRef device);
uint16_t recorded_AMRestorableDeviceGetProductID(AMRestorableDeviceRef device);
uint32_t recorded_AMRestorableDeviceGetBoardID(AMRestorableDeviceRef device);
uint32_t recorded_AMRestorableDeviceGetChipID(AMRestorableDeviceRef device);
uint32_t recorded_AMRestorableDeviceGetProductType(AMRestorableDeviceRef device);
uint32_t recorded_AMRestorableDeviceGetFusingInfo(AMRestorableDeviceRef device);
uint32_t recorded_AMRestorableDeviceGetLocationID(AMRestorableDeviceRef device);
CFStringRef recorded_AMRestorableDeviceCopySerialNumber(AMRestorableDeviceRef device);
CFStringRef recorded_AMRestorableDeviceCopyProductString(AMRestorableDeviceRef device);
AMRecoveryModeDeviceRef
recorded_AMRestorableDeviceCopyRecoveryModeDevice(AMRestorableDeviceRef device);
AMRError recorded_AMRecoveryModeDeviceSetAutoBoot(AMRecoveryModeDeviceRef device,
                                                  unsigned char auto_boot);
AMRError recorded_AMRecoveryModeDeviceReboot(AMRecoveryModeDeviceRef device);
void recorded_AMRestorableDeviceRestore(AMRestorableDeviceRef device, CFDictionaryRef options,
                                        AMRestorableDeviceProgressCallback callback,
                                        void * context);

} // extern "C"
