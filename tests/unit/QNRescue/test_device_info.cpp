#include "QNRescue/device_info.hpp"

#include "tests/unit/QNRescue/notifier_devices.hpp"
#include "tests/unit/helpers/objects.hpp"
#include "tests/unit/helpers/simulated_devices.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace {

using namespace qnrescue;
using tests::device_with;
using tests::equal;
using tests::plist;

device_info plain_info() {
    return {.ecid = QN::ecid(0x1A2B),
            .productID = 1,
            .boardID = 2,
            .chipID = 3,
            .productType = 4,
            .fusingInfo = 5,
            .locationID = 6,
            .serialNumber = std::nullopt,
            .productString = std::nullopt,
            .description = std::nullopt};
}

TEST(DeviceInfo, OptionalFieldsAreLeftOut) {
    EXPECT_TRUE(equal(make_cftype(plain_info()).get(),
                      plist("<dict><key>ECID</key><string>0000000000001A2B</string>"
                            "<key>ProductID</key><integer>1</integer>"
                            "<key>BoardID</key><integer>2</integer>"
                            "<key>ChipID</key><integer>3</integer>"
                            "<key>ProductType</key><integer>4</integer>"
                            "<key>FusingInfo</key><integer>5</integer>"
                            "<key>LocationID</key><integer>6</integer></dict>")
                          .get()));
}

TEST(DeviceInfo, OptionalFieldsAreAddedWherePresent) {
    auto info = plain_info();
    info.serialNumber.emplace("C39 \xc3\xa9");
    info.productString = "";
    info.description = "text";
    auto const dictionary = make_cftype(info);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 10);
    EXPECT_TRUE(equal(CFDictionaryGetValue(dictionary.get(), CFSTR("SerialNumber")),
                      tests::make_string("C39 \xc3\xa9").get()));
    EXPECT_TRUE(equal(CFDictionaryGetValue(dictionary.get(), CFSTR("ProductString")), CFSTR("")));
    EXPECT_TRUE(equal(CFDictionaryGetValue(dictionary.get(), CFSTR("Description")), CFSTR("text")));
}

TEST(DeviceInfo, TextsThatAreNotUtf8AreLeftOut) {
    auto info = plain_info();
    info.productString.emplace("\xff");
    info.description.emplace("text");
    EXPECT_EQ(CFDictionaryGetCount(make_cftype(info).get()), 8);
}

TEST(DeviceInfo, UnsignedNumbersBecomeSignedBitForBit) {
    auto info = plain_info();
    info.productID = 32768;
    info.boardID = std::numeric_limits<std::uint32_t>::max();
    info.chipID = 0x80000000;
    info.productType = 0x7fffffff;
    auto const dictionary = make_cftype(info);
    auto const number = [&](CFStringRef key) {
        std::int64_t value = 0;
        CFNumberGetValue(static_cast<CFNumberRef>(CFDictionaryGetValue(dictionary.get(), key)),
                         kCFNumberSInt64Type, &value);
        return value;
    };
    EXPECT_EQ(number(CFSTR("ProductID")), -32768);
    EXPECT_EQ(number(CFSTR("BoardID")), -1);
    EXPECT_EQ(number(CFSTR("ChipID")), -2147483648LL);
    EXPECT_EQ(number(CFSTR("ProductType")), 2147483647);
}

TEST(DeviceInfo, NumbersHaveTheWidthOfTheirProperty) {
    auto info = plain_info();
    info.productID = 32768;
    info.boardID = info.chipID = info.productType = info.locationID = 0x80000000;
    auto const dictionary = make_cftype(info);
    auto const type = [&](CFStringRef key) {
        return CFNumberGetType(
            static_cast<CFNumberRef>(CFDictionaryGetValue(dictionary.get(), key)));
    };
    EXPECT_EQ(type(CFSTR("ProductID")), kCFNumberSInt16Type);
    for (auto const key :
         {CFSTR("BoardID"), CFSTR("ChipID"), CFSTR("ProductType"), CFSTR("LocationID")}) {
        EXPECT_EQ(type(key), kCFNumberSInt32Type);
    }
}

TEST(DeviceInfo, HasOneOwner) {
    EXPECT_EQ(CFGetRetainCount(make_cftype(plain_info()).get()), 1);
    EXPECT_EQ(CFGetRetainCount(make_cftype(std::vector<QN::ecid>{}).get()), 1);
}

TEST(DeviceInfo, ListOfEcidsKeepsItsOrder) {
    std::vector<QN::ecid> const ecids{QN::ecid(0xFF), QN::ecid(0), QN::ecid("fedcba9876543210")};
    EXPECT_TRUE(equal(make_cftype(ecids).get(), plist("<array><string>00000000000000FF</string>"
                                                      "<string>0000000000000000</string>"
                                                      "<string>FEDCBA9876543210</string></array>")
                                                    .get()));
}

TEST(DeviceInfo, ListOfNoEcidsIsAnEmptyArray) {
    EXPECT_TRUE(equal(make_cftype(std::vector<QN::ecid>{}).get(), plist("<array/>").get()));
}

TEST(DeviceInfo, IsReadFromADevice) {
    auto const device = device_with(tests::recovery_device);
    auto const references = CFGetRetainCount(device);
    tests::call_trace const trace;
    auto const info = read_device_info(device, QN::ecid(0x123));
    EXPECT_EQ(info.ecid, QN::ecid(0x123));
    EXPECT_EQ(info.productID, 32769);
    EXPECT_EQ(info.boardID, 4294967295U);
    EXPECT_EQ(info.chipID, 32800U);
    EXPECT_EQ(info.productType, 2147483648U);
    EXPECT_EQ(info.fusingInfo, 3U);
    EXPECT_EQ(info.locationID, 336592896U);
    EXPECT_EQ(std::string(info.serialNumber.value()), "C39serial");
    EXPECT_EQ(info.productString, "T\xc3\xa9l\xc3\xa9phone \xe6\x97\xa5\xe6\x9c\xac & more");
    EXPECT_FALSE(info.description);
    EXPECT_EQ(CFGetRetainCount(device), references);

    auto const calls = trace.calls("AMRestorableDevice");
    constexpr std::string_view order[] = {"GetProductID",     "GetBoardID",       "GetChipID",
                                          "GetProductType",   "GetFusingInfo",    "GetLocationID",
                                          "CopySerialNumber", "CopyProductString"};
    ASSERT_EQ(calls.size(), std::size(order));
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_TRUE(calls[i].starts_with("AMRestorableDevice" + std::string(order[i]) + ' '))
            << calls[i];
    }
}

TEST(DeviceInfo, OfADeviceWithoutTexts) {
    auto const info = read_device_info(device_with(tests::dfu_device), QN::ecid(0xA2));
    EXPECT_FALSE(info.serialNumber);
    EXPECT_FALSE(info.productString);
    EXPECT_FALSE(info.description);
}

} // namespace
