#include "support/identifiers/device_id.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <iomanip>
#include <sstream>
#include <string>

namespace {

TEST(DeviceId, KeepsAnyText) {
    for (std::string const text : {"", "abc", "\xc3\xa9 anything"}) {
        EXPECT_EQ(QN::device_id(text).get_data(), text);
    }
}

TEST(DeviceId, OfAnEcidIsItsFormattedText) {
    EXPECT_EQ(QN::make_device_id(QN::ecid(4660)), QN::device_id("0000000000001234"));
    EXPECT_EQ(QN::make_device_id(QN::ecid("fedcba9876543210")).get_data(), "FEDCBA9876543210");
    EXPECT_EQ(QN::make_device_id(QN::ecid(0)).get_data(), "????????????????");
}

TEST(DeviceId, ComparesByteWise) {
    QN::device_id const lower("ab");
    QN::device_id const upper("AB");
    EXPECT_TRUE(lower != upper);
    EXPECT_FALSE(lower == upper);
    EXPECT_TRUE(lower == QN::device_id("ab"));
    EXPECT_TRUE(upper < lower);
    EXPECT_TRUE(lower < QN::device_id("ab0"));
    EXPECT_FALSE(lower < lower);
}

TEST(DeviceId, HashIsThatOfTheText) {
    EXPECT_EQ(std::hash<QN::device_id>{}(QN::device_id("ab")), std::hash<std::string>{}("ab"));
}

TEST(DeviceId, FormatsLikeAString) {
    QN::device_id const id("abcdef");
    EXPECT_EQ(fmt::format("{}", id), "abcdef");
    EXPECT_EQ(fmt::format("{:>8}", id), "  abcdef");
    EXPECT_EQ(fmt::format("{:-^10.4}", id), "---abcd---");
}

TEST(DeviceId, IsWrittenToStreamsAsFormatted) {
    std::ostringstream stream;
    auto & result = stream << QN::make_device_id(QN::ecid(0)) << '|' << QN::device_id("ab");
    EXPECT_EQ(stream.str(), "????????????????|ab");
    EXPECT_EQ(&result, &stream);
    stream.str("");
    stream << std::setw(30) << QN::device_id("ab");
    EXPECT_EQ(stream.str(), "ab");
}

} // namespace
