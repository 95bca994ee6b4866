#include "benchmarks/native/bare_devices.hpp"

#include <random>

namespace {

// A device is the number that is its ECID.
CFNumberRef number_of(AMRestorableDeviceRef device) {
    return reinterpret_cast<CFNumberRef>(device);
}

} // namespace

namespace benchmarks {

qnrescue::cf_owner<AMRestorableDeviceRef> make_device(std::uint64_t ecid) {
    auto const number = CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &ecid);
    return qnrescue::adopt(
        reinterpret_cast<AMRestorableDeviceRef>(const_cast<__CFNumber *>(number)));
}

std::vector<qnrescue::cf_owner<AMRestorableDeviceRef>> make_devices(std::size_t count) {
    std::mt19937_64 ecids;
    std::vector<qnrescue::cf_owner<AMRestorableDeviceRef>> devices;
    while (devices.size() < count) {
        devices.push_back(make_device(ecids()));
    }
    return devices;
}

} // namespace benchmarks

CFMutableDictionaryRef AMRestoreCreateDefaultOptions(CFAllocatorRef) {
    return nullptr;
}

int AMRestorableDeviceRegisterForNotifications(AMRestorableDeviceNotificationCallback, void *,
                                               CFErrorRef *) {
    return 1;
}

AMRestorableDeviceState AMRestorableDeviceGetState(AMRestorableDeviceRef) {
    return kAMRestorableDeviceStateRecovery;
}

std::uint64_t AMRestorableDeviceGetECID(AMRestorableDeviceRef device) {
    std::uint64_t ecid = 0;
    CFNumberGetValue(number_of(device), kCFNumberSInt64Type, &ecid);
    return ecid;
}

void AMRestorableDeviceRestore(AMRestorableDeviceRef, CFDictionaryRef,
                               AMRestorableDeviceProgressCallback, void *) {}
