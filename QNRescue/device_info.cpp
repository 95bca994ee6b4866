#include "QNRescue/device_info.hpp"

#include "platform/cf_collections.hpp"
#include "platform/cf_strings.hpp"

namespace qnrescue {

namespace {

cf_owner<CFTypeRef> make_value(std::string_view text) {
    return make_cfstring(text);
}

cf_owner<CFTypeRef> make_value(std::uint16_t number) {
    return adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt16Type, &number));
}

cf_owner<CFTypeRef> make_value(std::uint32_t number) {
    return adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &number));
}

template <typename Value>
cf_owner<CFTypeRef> make_value(std::optional<Value> const & value) {
    return value ? make_value(static_cast<std::string_view>(*value)) : nullptr;
}

} // namespace

device_info read_device_info(AMRestorableDeviceRef device, QN::ecid const & ecid) {
    device_info info{
        .ecid = ecid,
        .productID = AMRestorableDeviceGetProductID(device),
        .boardID = AMRestorableDeviceGetBoardID(device),
        .chipID = AMRestorableDeviceGetChipID(device),
        .productType = AMRestorableDeviceGetProductType(device),
        .fusingInfo = AMRestorableDeviceGetFusingInfo(device),
        .locationID = AMRestorableDeviceGetLocationID(device),
        .serialNumber = std::nullopt,
        .productString = std::nullopt,
        .description = std::nullopt,
    };
    if (auto const text = to_utf8(adopt(AMRestorableDeviceCopySerialNumber(device)).get())) {
        info.serialNumber.emplace(*text);
    }
    info.productString = to_utf8(adopt(AMRestorableDeviceCopyProductString(device)).get());
    return info;
}

cf_owner<CFDictionaryRef> make_cftype(device_info const & info) {
    auto dictionary = make_mutable_dictionary(10);
    if (!dictionary) {
        return nullptr;
    }
    auto const add = [&](CFStringRef key, auto const & value) {
        if (auto const object = make_value(value)) {
            CFDictionarySetValue(dictionary.get(), key, object.get());
        }
    };
    add(CFSTR("ECID"), static_cast<std::string_view>(info.ecid));
    add(CFSTR("ProductID"), info.productID);
    add(CFSTR("BoardID"), info.boardID);
    add(CFSTR("ChipID"), info.chipID);
    add(CFSTR("ProductType"), info.productType);
    add(CFSTR("FusingInfo"), info.fusingInfo);
    add(CFSTR("LocationID"), info.locationID);
    add(CFSTR("SerialNumber"), info.serialNumber);
    add(CFSTR("ProductString"), info.productString);
    add(CFSTR("Description"), info.description);
    return dictionary;
}

cf_owner<CFArrayRef> make_cftype(std::span<QN::ecid const> ecids) {
    auto array = make_mutable_array(static_cast<CFIndex>(ecids.size()));
    if (!array) {
        return nullptr;
    }
    for (auto const & ecid : ecids) {
        if (auto const text = make_cfstring(ecid)) {
            CFArrayAppendValue(array.get(), text.get());
        }
    }
    return array;
}

} // namespace qnrescue
