// Apple's MobileDevice restore interface, as far as this project calls it. The device and the
// status dictionary that a callback gets are borrowed; the caller releases what a Copy function
// returns with CFRelease.
#pragma once

#include "platform/CoreFoundation.h"

#if !defined(_WIN32)
#define AMR_EXPORT extern
#elif defined(QNRESCUE_BUILDING_MOBILEDEVICE)
#define AMR_EXPORT extern __declspec(dllexport)
#else
#define AMR_EXPORT extern __declspec(dllimport)
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct _AMRestorableDevice * AMRestorableDeviceRef;
typedef struct _AMRecoveryModeDevice * AMRecoveryModeDeviceRef;
typedef struct _AMDeviceNotification * AMDeviceNotificationRef;
struct AMDeviceNotificationCallbackInfo;

// 0 is success. An enumeration in C++, so that an error cannot be mistaken for a plain number.
#ifdef __cplusplus
enum AMRError : int { kAMRSuccess = 0 };
enum AMRestorableDeviceState : int {
    kAMRestorableDeviceStateUnknown = 0,
    kAMRestorableDeviceStateDFU = 1,
    kAMRestorableDeviceStateRecovery = 2,
    kAMRestorableDeviceStateRestoreOS = 3,
    kAMRestorableDeviceStateBootedOS = 4
};
enum AMRestorableDeviceNotificationType : int {
    kAMRestorableDeviceConnected = 0,
    kAMRestorableDeviceDisconnected = 1
};
#else
typedef int AMRError;
typedef int AMRestorableDeviceState;
typedef int AMRestorableDeviceNotificationType;
#endif

typedef void (*AMDeviceNotificationCallback)(struct AMDeviceNotificationCallbackInfo * info,
                                             void * context);
typedef void (*AMRestorableDeviceNotificationCallback)(AMRestorableDeviceRef device,
                                                       AMRestorableDeviceNotificationType type,
                                                       void * context);
typedef void (*AMRestorableDeviceProgressCallback)(AMRestorableDeviceRef device,
                                                   CFDictionaryRef status, void * context);

AMR_EXPORT int AMDeviceNotificationSubscribe(AMDeviceNotificationCallback callback,
                                             unsigned int minimumInterfaceSpeed,
                                             unsigned int connectionType, void * context,
                                             AMDeviceNotificationRef * subscription);
AMR_EXPORT int AMDeviceNotificationUnsubscribe(AMDeviceNotificationRef subscription);

// Makes restores append their log lines to the file; the path is in UTF-8.
AMR_EXPORT AMRError AMRestoreEnableFileLogging(char const * path);
// Returns new options that the caller releases, or null on failure.
AMR_EXPORT CFMutableDictionaryRef AMRestoreCreateDefaultOptions(CFAllocatorRef allocator);

// Returns a client id above 0, or another number and an error that the caller releases.
AMR_EXPORT int
AMRestorableDeviceRegisterForNotifications(AMRestorableDeviceNotificationCallback callback,
                                           void * context, CFErrorRef * error);
// Ends the notifications. None is under way once this has returned.
AMR_EXPORT int AMRestorableDeviceUnregisterForNotifications(int clientID);

AMR_EXPORT AMRestorableDeviceState AMRestorableDeviceGetState(AMRestorableDeviceRef device);
AMR_EXPORT uint64_t AMRestorableDeviceGetECID(AMRestorableDeviceRef device);
AMR_EXPORT uint16_t AMRestorableDeviceGetProductID(AMRestorableDeviceRef device);
AMR_EXPORT uint32_t AMRestorableDeviceGetBoardID(AMRestorableDeviceRef device);
AMR_EXPORT uint32_t AMRestorableDeviceGetChipID(AMRestorableDeviceRef device);
AMR_EXPORT uint32_t AMRestorableDeviceGetProductType(AMRestorableDeviceRef device);
AMR_EXPORT uint32_t AMRestorableDeviceGetFusingInfo(AMRestorableDeviceRef device);
AMR_EXPORT uint32_t AMRestorableDeviceGetLocationID(AMRestorableDeviceRef device);
// The three Copy functions return null where the device has no such thing.
AMR_EXPORT CFStringRef AMRestorableDeviceCopySerialNumber(AMRestorableDeviceRef device);
AMR_EXPORT CFStringRef AMRestorableDeviceCopyProductString(AMRestorableDeviceRef device);
AMR_EXPORT AMRecoveryModeDeviceRef
AMRestorableDeviceCopyRecoveryModeDevice(AMRestorableDeviceRef device);

AMR_EXPORT AMRError AMRecoveryModeDeviceSetAutoBoot(AMRecoveryModeDeviceRef device,
                                                    unsigned char autoBoot);
AMR_EXPORT AMRError AMRecoveryModeDeviceReboot(AMRecoveryModeDeviceRef device);

// Starts a restore. Reports come on a thread of the library, possibly before this returns.
AMR_EXPORT void AMRestorableDeviceRestore(AMRestorableDeviceRef device, CFDictionaryRef options,
                                          AMRestorableDeviceProgressCallback callback,
                                          void * context);

#ifdef __cplusplus
}
#endif
