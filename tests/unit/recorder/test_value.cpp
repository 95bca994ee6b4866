// What is written as a property list is read by CoreFoundation as the same.
#include "recorder/value.hpp"

#include "recorder/capture.hpp"
#include "simulator/MobileDevice/node.hpp"

#include <gtest/gtest.h>

namespace {

using mobile_device::adopt;
using mobile_device::cf_owner;
using recorder::dictionary;

cf_owner<CFPropertyListRef> read_back(recorder::value const & written) {
    auto const text = recorder::write_property_list(written);
    auto const data =
        adopt(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<UInt8 const *>(text.data()),
                           static_cast<CFIndex>(text.size())));
    return adopt(CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(),
                                              kCFPropertyListImmutable, nullptr, nullptr));
}

TEST(Value, TextsAreReadAsTheyWere) {
    for (auto const & text :
         {std::string{}, std::string{"<a> & \"b\" 'c' ]]>"}, std::string{"\r\n\t \x01\x1F\x7F"},
          std::string{"a\0b", 3}, std::string{"漢字 é 😀"}, std::string{"\x1B[0m"},
          std::string{"lone \xED\xA0\xBD and \xED\xB8\x80"}, std::string{"\uFFFD\uFFFE\uFFFF"}}) {
        auto const read = read_back(recorder::make_string(text));
        ASSERT_NE(read, nullptr) << text;
        EXPECT_EQ(recorder::capture_text(mobile_device::node{read.get(), ""}.string().get()), text);
    }
}

TEST(Value, ACharacterThatXmlCannotHoldIsANumber) {
    EXPECT_NE(recorder::write_property_list(recorder::make_string("a\rb")).find("a&#13;b"),
              std::string::npos);
    auto const text =
        recorder::write_property_list(recorder::make_string("a\x01\xED\xA0\x80\uFFFFé"));
    for (auto const part :
         {"<string>text</string>", "<string>a</string>", "<integer>1</integer>",
          "<integer>55296</integer>", "<integer>65535</integer>", "<string>é</string>"}) {
        EXPECT_NE(text.find(part), std::string::npos) << part << " in " << text;
    }
    EXPECT_EQ(text.find("&#1;"), std::string::npos);
}

TEST(Value, NumbersAreReadAsTheyWere) {
    auto const integer = read_back(recorder::make_integer(std::int64_t{-7}));
    std::int64_t whole = 0;
    ASSERT_TRUE(
        CFNumberGetValue(static_cast<CFNumberRef>(integer.get()), kCFNumberSInt64Type, &whole));
    EXPECT_EQ(whole, -7);
    for (double const number : {0.1, 1e300, -2.5, 5e-324, 12345678.0}) {
        auto const read = read_back(recorder::make_real(number));
        double real = 0;
        CFNumberGetValue(static_cast<CFNumberRef>(read.get()), kCFNumberFloat64Type, &real);
        EXPECT_EQ(real, number);
        EXPECT_TRUE(CFNumberIsFloatType(static_cast<CFNumberRef>(read.get())));
    }
}

TEST(Value, ContainersAreIndented) {
    EXPECT_EQ(recorder::write_property_list({dictionary{
                  {"a<", {recorder::array{recorder::make_boolean(true)}}}, {"b", {dictionary{}}}}}),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\""
              " \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
              "<plist version=\"1.0\">\n"
              "<dict>\n\t<key>a&lt;</key>\n\t<array>\n\t\t<true/>\n\t</array>\n"
              "\t<key>b</key>\n\t<dict>\n\t</dict>\n</dict>\n</plist>\n");
}

TEST(Value, AreEqualWithEqualContent) {
    auto const one = [](std::string_view key, std::int64_t number) {
        return recorder::value{dictionary{{std::string{key}, recorder::make_integer(number)}}};
    };
    EXPECT_TRUE(one("a", 1) == one("a", 1));
    EXPECT_FALSE(one("a", 1) == one("a", 2));
    EXPECT_FALSE(one("a", 1) == one("b", 1));
    EXPECT_FALSE(one("a", 1) == recorder::make_string("a"));
    EXPECT_FALSE(recorder::make_string("1") == recorder::make_integer(std::int64_t{1}));
    EXPECT_FALSE((recorder::value{recorder::array{one("a", 1)}}) ==
                 recorder::value{recorder::array{}});
}

} // namespace
