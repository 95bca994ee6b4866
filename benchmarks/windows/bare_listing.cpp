// The least that a list of devices costs: registers, unregisters and prints one document.
#include "platform/MobileDevice.h"
#include "platform/cf_collections.hpp"
#include "platform/cf_ownership.hpp"

#include <cstdio>

int main() {
    using namespace qnrescue;

    auto const client = AMRestorableDeviceRegisterForNotifications(
        [](AMRestorableDeviceRef, AMRestorableDeviceNotificationType, void *) {}, nullptr, nullptr);
    AMRestorableDeviceUnregisterForNotifications(client);

    auto const devices = make_mutable_array();
    auto const document = make_mutable_dictionary();
    CFDictionarySetValue(document.get(), CFSTR("Type"), CFSTR("DeviceList"));
    CFDictionarySetValue(document.get(), CFSTR("Value"), devices.get());
    auto const data = adopt(CFPropertyListCreateData(kCFAllocatorDefault, document.get(),
                                                     kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    auto const size = static_cast<std::size_t>(CFDataGetLength(data.get()));
    return std::fwrite(CFDataGetBytePtr(data.get()), 1, size, stdout) == size ? 0 : 1;
}
