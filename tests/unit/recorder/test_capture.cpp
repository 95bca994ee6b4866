// Objects become what a scenario reads as the same objects.
#include "recorder/capture.hpp"

#include "simulator/MobileDevice/scenario.hpp"
#include "tests/unit/simulator/MobileDevice/property_list_text.hpp"

#include <algorithm>

#include <gtest/gtest.h>

namespace {

using mobile_device::adopt;
using mobile_device::make_cfstring;
using mobile_device::make_error;
using mobile_device::make_mutable_array;
using mobile_device::make_mutable_dictionary;
using mobile_device::make_number;
using property_list::integer;
using property_list::text;

namespace xml = property_list;

// The status that a scenario has where this is written.
mobile_device::cf_share<CFDictionaryRef> status_written(std::string const & status) {
    auto const root = xml::document(xml::dictionary(
        {{"Devices",
          xml::array({xml::dictionary(
              {{"ECID", text("1")},
               {"RestoreReports", xml::array({xml::dictionary({{"Status", status}})})}})})}}));
    auto const played = mobile_device::parse_scenario(
        {reinterpret_cast<std::uint8_t const *>(root.data()), root.size()});
    return played.devices.at(0).restore_reports.value().at(0).status;
}

std::string written(recorder::value const & content) {
    auto const all = recorder::write_property_list(content);
    auto const begin = all.find("<plist version=\"1.0\">\n") + 22;
    return all.substr(begin, all.rfind("</plist>") - begin);
}

// Captures a status, lets a scenario read that, and captures it again.
void expect_same_after_reading(std::string const & status) {
    std::vector<std::string> losses;
    auto const first = recorder::capture(status_written(status).get(), losses);
    auto const second = recorder::capture(status_written(written(first)).get(), losses);
    EXPECT_EQ(written(first), written(second));
    EXPECT_EQ(losses, std::vector<std::string>{});
}

TEST(Capture, ValuesOfEveryKindAreReadAsTheSame) {
    auto const error = xml::dictionary({{"$type", text("error")},
                                        {"Domain", text("d")},
                                        {"Code", integer(-9)},
                                        {"FailureReason", text("why")}});
    auto const null = xml::dictionary({{"$type", text("null")}});
    expect_same_after_reading(xml::dictionary(
        {{"Error", error},
         {"Null", null},
         {"Set", xml::dictionary({{"$type", text("set")},
                                  {"Values", xml::array({text("b"), text("a"), integer(3)})}})},
         {"Numbered",
          xml::dictionary({{"$type", text("dictionary")},
                           {"Entries", xml::array({xml::dictionary(
                                           {{"Key", integer(5)}, {"Value", null}})})}})},
         {"List",
          xml::array({"<true/>", "<real>0.25</real>", "<data>AAEC</data>",
                      "<date>2024-02-29T12:00:01Z</date>",
                      "<integer>18446744073709551615</integer>",
                      "<integer>-9223372036854775808</integer>", "<array/>", "<dict/>"})}}));
}

TEST(Capture, WritesWhatAScenarioSays) {
    auto const options = make_mutable_dictionary();
    CFDictionarySetValue(options.get(), CFSTR("b"), make_number(1).get());
    CFDictionarySetValue(options.get(), CFSTR("a"), kCFBooleanFalse);
    std::vector<std::string> losses;
    EXPECT_EQ(
        written(recorder::capture(options.get(), losses)),
        "<dict>\n\t<key>a</key>\n\t<false/>\n\t<key>b</key>\n\t<integer>1</integer>\n</dict>\n");
    EXPECT_EQ(recorder::capture(nullptr, losses), recorder::make_null());
    EXPECT_EQ(recorder::capture(kCFNull, losses), recorder::make_null());
}

TEST(Capture, TheValuesOfASetAreSorted) {
    auto const set = adopt(CFSetCreateMutable(kCFAllocatorDefault, 0, &kCFTypeSetCallBacks));
    for (int number = 10; number < 60; ++number) {
        CFSetAddValue(set.get(), make_number(number).get());
    }
    std::vector<std::string> losses;
    auto const captured = recorder::capture(set.get(), losses);
    auto const & described = std::get<recorder::dictionary>(captured.held);
    auto const & values = std::get<recorder::array>(described.at(1).content.held);
    EXPECT_EQ(values.size(), 50U);
    EXPECT_TRUE(std::ranges::is_sorted(values, {}, written));
}

TEST(Capture, ADictionaryWithTheKeyOfSpecialValuesIsWrittenAsOne) {
    auto const odd = make_mutable_dictionary();
    CFDictionarySetValue(odd.get(), CFSTR("$type"), CFSTR("x"));
    std::vector<std::string> losses;
    auto const status = status_written(written(recorder::capture(odd.get(), losses)));
    EXPECT_TRUE(CFEqual(odd.get(), status.get()));
}

TEST(Capture, SaysWhatIsLost) {
    std::vector<std::string> losses;
    auto nested = make_mutable_array();
    for (int depth = 0; depth < 300; ++depth) {
        auto outer = make_mutable_array();
        CFArrayAppendValue(outer.get(), nested.get());
        nested = std::move(outer);
    }
    recorder::capture(nested.get(), losses);
    ASSERT_EQ(losses.size(), 1U);
    EXPECT_NE(losses[0].find("nested too deeply"), std::string::npos);
}

TEST(Capture, TextsThatXmlCannotHoldAreReadAsTheSame) {
    auto const odd = adopt(CFStringCreateWithBytes(kCFAllocatorDefault,
                                                   reinterpret_cast<UInt8 const *>(u"\xD800\x01"
                                                                                   u"z"),
                                                   6, kCFStringEncodingUTF16, false));
    ASSERT_NE(odd, nullptr);
    auto const error = make_error(odd.get(), 1, odd.get(), odd.get());
    auto const status = make_mutable_dictionary();
    CFDictionarySetValue(status.get(), CFSTR("Text"), odd.get());
    CFDictionarySetValue(status.get(), CFSTR("Error"), error.get());
    auto const by_odd_key = make_mutable_dictionary();
    CFDictionarySetValue(by_odd_key.get(), odd.get(), CFSTR("x"));
    CFDictionarySetValue(status.get(), CFSTR("Inner"), by_odd_key.get());
    std::vector<std::string> losses;
    auto const captured = written(recorder::capture(status.get(), losses));
    EXPECT_TRUE(CFEqual(status.get(), status_written(captured).get())) << captured;
    EXPECT_EQ(losses, std::vector<std::string>{});
}

TEST(Capture, AnErrorHasTheDescriptionThatItWouldNotGetByItself) {
    std::vector<std::string> losses;
    auto const keys_of = [&](CFStringRef description, CFStringRef reason) {
        std::string keys;
        auto const error = make_error(CFSTR("d"), 3, description, reason);
        for (auto const & each : recorder::capture_error(error.get(), losses)) {
            keys += each.key + ' ';
        }
        return keys;
    };
    EXPECT_EQ(keys_of(nullptr, nullptr), "Domain Code ");
    EXPECT_EQ(keys_of(nullptr, CFSTR("why")), "Domain Code FailureReason ");
    EXPECT_EQ(keys_of(CFSTR("what"), CFSTR("why")), "Domain Code Description FailureReason ");
    EXPECT_TRUE(losses.empty());
}

mobile_device::cf_owner<CFErrorRef>
error_with(std::initializer_list<std::pair<CFStringRef, CFTypeRef>> user_info) {
    auto const info = make_mutable_dictionary();
    for (auto const & [key, content] : user_info) {
        CFDictionarySetValue(info.get(), key, content);
    }
    return adopt(CFErrorCreate(kCFAllocatorDefault, CFSTR("d"), 3, info.get()));
}

TEST(Capture, AnErrorThatHoldsMoreIsReadAsTheSame) {
    auto const inner = error_with({{CFSTR("Path"), CFSTR("C:\\x")}});
    for (auto const & error :
         {error_with({{CFSTR("NSUnderlyingError"), inner.get()},
                      {kCFErrorLocalizedDescriptionKey, CFSTR("what")},
                      {kCFErrorLocalizedFailureReasonKey, CFSTR("why")}}),
          error_with({{CFSTR("NSLocalizedFailure"), CFSTR("It failed.")},
                      {kCFErrorLocalizedDescriptionKey, CFSTR("otherwise")}}),
          error_with({{kCFErrorLocalizedDescriptionKey, CFSTR("what")},
                      {kCFErrorLocalizedFailureReasonKey, make_number(5).get()}})}) {
        auto const status = make_mutable_dictionary();
        CFDictionarySetValue(status.get(), CFSTR("Error"), error.get());
        std::vector<std::string> losses;
        auto const captured = written(recorder::capture(status.get(), losses));
        EXPECT_TRUE(CFEqual(status.get(), status_written(captured).get())) << captured;
        EXPECT_EQ(losses, std::vector<std::string>{});
    }
}

TEST(Capture, AnErrorHasTheDescriptionThatWasShown) {
    auto const number = make_number(5);
    auto const usual = make_cfstring("The operation couldn’t be completed. (d error 3.)");
    for (auto const & error : {error_with({{CFSTR("NSLocalizedFailure"), CFSTR("It failed.")}}),
                               error_with({{CFSTR("NSDescription"), CFSTR("of it")}}),
                               // Another library may not know the key, and show this by itself.
                               error_with({{CFSTR("NSLocalizedFailure"), usual.get()}}),
                               error_with({{kCFErrorLocalizedFailureReasonKey, number.get()}})}) {
        std::vector<std::string> losses;
        auto const captured = recorder::capture_error(error.get(), losses);
        auto const shown = recorder::capture_text(adopt(CFErrorCopyDescription(error.get())).get());
        ASSERT_EQ(captured.at(2).key, "Description");
        EXPECT_EQ(captured.at(2).content, recorder::make_string(shown));
        EXPECT_EQ(losses, std::vector<std::string>{});
    }
}

TEST(Capture, WhatTheUserInfoLosesIsSaidInItsPlace) {
    auto const subscription = error_with({{CFSTR("Type"), kCFAllocatorNull}});
    std::vector<std::string> losses;
    auto const captured = written({recorder::capture_error(subscription.get(), losses)});
    EXPECT_NE(captured.find("<string>A value has a type that no scenario can hold: "),
              std::string::npos)
        << captured;
    EXPECT_EQ(losses, std::vector<std::string>{});
    auto const shown = error_with({{kCFErrorLocalizedFailureReasonKey, kCFAllocatorNull}});
    recorder::capture_error(shown.get(), losses);
    EXPECT_EQ(losses.size(), 1U);
}

TEST(Capture, WhatIsLostIsDescribedInShort) {
    std::string longest;
    for (int count = 0; count < 400; ++count) {
        longest += "é";
    }
    mobile_device::cf_owner<CFTypeRef> nested = make_cfstring(longest);
    for (int depth = 0; depth < 200; ++depth) {
        auto outer = make_mutable_array();
        CFArrayAppendValue(outer.get(), nested.get());
        nested = std::move(outer);
    }
    std::vector<std::string> losses;
    recorder::capture(nested.get(), losses);
    ASSERT_EQ(losses.size(), 1U);
    EXPECT_LT(losses[0].size(), 400U);
    EXPECT_TRUE(losses[0].ends_with("...")) << losses[0];
    EXPECT_NE(make_cfstring(losses[0]), nullptr);
}

TEST(Capture, OptionsOfARestoreAreForReadersAlone) {
    auto const options = make_mutable_dictionary();
    CFDictionarySetValue(options.get(), CFSTR("Odd"), kCFAllocatorNull);
    EXPECT_NE(written(recorder::capture_to_read(options.get())).find("no scenario can hold"),
              std::string::npos);
}

TEST(Capture, TheSimulatorReadsWhatIsNestedDeeply) {
    auto const wrapped_in = [](auto const & wrap) {
        auto nested = make_mutable_dictionary();
        for (int depth = 0; depth < 300; ++depth) {
            auto outer = make_mutable_dictionary();
            wrap(outer.get(), nested.get());
            nested = std::move(outer);
        }
        std::vector<std::string> losses;
        return status_written(written(recorder::capture(nested.get(), losses)));
    };
    EXPECT_NE(wrapped_in([](CFMutableDictionaryRef outer, CFTypeRef inner) {
                  CFDictionarySetValue(outer, make_number(1).get(), inner);
              }),
              nullptr);
    EXPECT_NE(
        wrapped_in([](CFMutableDictionaryRef outer, CFTypeRef inner) {
            CFDictionarySetValue(outer, CFSTR("Error"), error_with({{CFSTR("\x01"), inner}}).get());
        }),
        nullptr);
}

} // namespace
