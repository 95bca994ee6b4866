#include "tests/fake_device_library/fake_device_library.hpp"

#include "platform/cf_collections.hpp"

#include <cstring>

namespace tests {

namespace {

// What the bytes of a device's object hold.
struct properties {
    std::uint64_t ecid;
    AMRestorableDeviceState state;
};

properties properties_of(AMRestorableDeviceRef device) {
    properties read;
    std::memcpy(&read, CFDataGetBytePtr(reinterpret_cast<CFDataRef>(device)), sizeof read);
    return read;
}

} // namespace

library_behaviour & fake_device_library() {
    static auto & behaviour = *new library_behaviour;
    return behaviour;
}

qnrescue::cf_owner<AMRestorableDeviceRef> make_device(std::uint64_t ecid,
                                                      AMRestorableDeviceState state) {
    properties const held{ecid, state};
    auto const data =
        CFDataCreate(kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(&held), sizeof held);
    return qnrescue::adopt(
        reinterpret_cast<AMRestorableDeviceRef>(const_cast<struct __CFData *>(data)));
}

} // namespace tests

using namespace tests;

int AMDeviceNotificationSubscribe(AMDeviceNotificationCallback, unsigned int, unsigned int, void *,
                                  AMDeviceNotificationRef * subscription) {
    *subscription = nullptr;
    if (auto const & act = fake_device_library().on_subscription) {
        *subscription = act();
        return *subscription == nullptr ? 1 : 0;
    }
    return 0;
}

int AMDeviceNotificationUnsubscribe(AMDeviceNotificationRef subscription) {
    if (auto const & act = fake_device_library().on_unsubscription) {
        act(subscription);
    }
    return 0;
}

CFMutableDictionaryRef AMRestoreCreateDefaultOptions(CFAllocatorRef) {
    return qnrescue::make_mutable_dictionary().release();
}

int AMRestorableDeviceRegisterForNotifications(AMRestorableDeviceNotificationCallback callback,
                                               void * context, CFErrorRef * error) {
    *error = nullptr;
    if (auto const & act = fake_device_library().on_registration) {
        act(callback, context);
    }
    return registered_client;
}

int AMRestorableDeviceUnregisterForNotifications(int client) {
    if (auto const & act = fake_device_library().on_unregistration) {
        act(client);
    }
    return 0;
}

AMRestorableDeviceState AMRestorableDeviceGetState(AMRestorableDeviceRef device) {
    if (auto const & act = fake_device_library().on_question_for_state) {
        act();
    }
    return properties_of(device).state;
}

uint64_t AMRestorableDeviceGetECID(AMRestorableDeviceRef device) {
    return properties_of(device).ecid;
}

void AMRestorableDeviceRestore(AMRestorableDeviceRef, CFDictionaryRef,
                               AMRestorableDeviceProgressCallback callback, void * context) {
    if (auto const & act = fake_device_library().on_restore) {
        act(callback, context);
    }
}

AMRError AMRestoreEnableFileLogging(char const *) {
    return kAMRSuccess;
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
