// Values of a status that no property list can hold.
#include "platform/cf_strings.hpp"
#include "tests/unit/simulator/MobileDevice/fixture.hpp"

using namespace mobile_device;
using namespace property_list;

namespace {

cf_share<CFDictionaryRef> status_of(std::string const & written) {
    auto const xml = document(dictionary(
        {{"Devices",
          array({dictionary({{"ECID", text("1")},
                             {"RestoreReports", array({dictionary({{"Status", written}})})}})})}}));
    auto const played =
        parse_scenario({reinterpret_cast<std::uint8_t const *>(xml.data()), xml.size()});
    return played.devices.at(0).restore_reports.value().at(0).status;
}

CFTypeRef value(cf_share<CFDictionaryRef> const & status, char const * key) {
    return CFDictionaryGetValue(status.get(), make_cfstring(key).get());
}

} // namespace

TEST(SpecialValues, OrdinaryValuesStayAsTheyAre) {
    auto const status = status_of(dictionary(
        {{"Status", text("Restoring")}, {"Progress", integer(5)}, {"List", array({text("a")})}}));
    EXPECT_EQ(CFDictionaryGetCount(status.get()), 3);
    EXPECT_TRUE(CFEqual(value(status, "Status"), CFSTR("Restoring")));
    EXPECT_TRUE(CFEqual(value(status, "Progress"), make_number(5).get()));
    auto const list = static_cast<CFArrayRef>(value(status, "List"));
    ASSERT_EQ(CFArrayGetCount(list), 1);
    EXPECT_TRUE(CFEqual(CFArrayGetValueAtIndex(list, 0), CFSTR("a")));
}

TEST(SpecialValues, AnErrorMayHaveTexts) {
    auto const status = status_of(dictionary(
        {{"Bare",
          dictionary({{"$type", text("error")}, {"Domain", text("d")}, {"Code", integer(-7)}})},
         {"Full", dictionary({{"$type", text("error")},
                              {"Domain", text("d")},
                              {"Code", integer(7)},
                              {"Description", text("what")},
                              {"FailureReason", text("why")}})}}));
    auto const bare = static_cast<CFErrorRef>(const_cast<void *>(value(status, "Bare")));
    ASSERT_EQ(CFGetTypeID(bare), CFErrorGetTypeID());
    EXPECT_EQ(CFErrorGetCode(bare), -7);
    auto const info = adopt(CFErrorCopyUserInfo(bare));
    EXPECT_EQ(CFDictionaryGetCount(info.get()), 0);

    auto const full = static_cast<CFErrorRef>(const_cast<void *>(value(status, "Full")));
    ASSERT_EQ(CFGetTypeID(full), CFErrorGetTypeID());
    EXPECT_EQ(qnrescue::to_utf8(CFErrorGetDomain(full)), "d");
    auto const description = adopt(CFErrorCopyDescription(full));
    auto const reason = adopt(CFErrorCopyFailureReason(full));
    EXPECT_EQ(qnrescue::to_utf8(description.get()), "what");
    EXPECT_EQ(qnrescue::to_utf8(reason.get()), "why");
}

TEST(SpecialValues, ASetHoldsItsValues) {
    auto const status = status_of(dictionary(
        {{"Set", dictionary({{"$type", text("set")},
                             {"Values", array({text("a"), integer(1),
                                               dictionary({{"$type", text("null")}})})}})}}));
    auto const set = static_cast<CFSetRef>(value(status, "Set"));
    ASSERT_EQ(CFGetTypeID(set), CFSetGetTypeID());
    EXPECT_EQ(CFSetGetCount(set), 3);
}

TEST(SpecialValues, ADictionaryHasKeysOfAnyType) {
    auto const entries =
        array({dictionary({{"Key", integer(1)}, {"Value", text("one")}}),
               dictionary({{"Key", array({})}, {"Value", dictionary({{"$type", text("null")}})}})});
    auto const written = dictionary({{"$type", text("dictionary")}, {"Entries", entries}});
    auto const whole = status_of(written);
    auto const inner = status_of(dictionary({{"Inner", written}}));
    for (auto const dictionary :
         {whole.get(), static_cast<CFDictionaryRef>(value(inner, "Inner"))}) {
        ASSERT_EQ(CFGetTypeID(dictionary), CFDictionaryGetTypeID());
        EXPECT_EQ(CFDictionaryGetCount(dictionary), 2);
        EXPECT_TRUE(CFEqual(CFDictionaryGetValue(dictionary, make_number(1).get()), CFSTR("one")));
        auto const empty =
            adopt(CFArrayCreate(kCFAllocatorDefault, nullptr, 0, &kCFTypeArrayCallBacks));
        EXPECT_EQ(CFDictionaryGetValue(dictionary, empty.get()), kCFNull);
    }
}

TEST(SpecialValues, AnErrorMayHaveUserInfo) {
    auto const error = [](std::initializer_list<std::pair<std::string_view, std::string>> more) {
        return dictionary({{"$type", text("error")}, {"Domain", text("d")}, {"Code", integer(1)}})
            .replace(0, 6, "<dict>" + dictionary(more).substr(6, dictionary(more).size() - 13));
    };
    auto const numbered = dictionary(
        {{"$type", text("dictionary")},
         {"Entries", array({dictionary({{"Key", integer(1)}, {"Value", text("one")}})})}});
    auto const status = status_of(dictionary(
        {{"Error", error({{"Description", text("what")},
                          {"UserInfo", dictionary({{"NSUnderlyingError",
                                                    error({{"FailureReason", text("why")}})},
                                                   {"NSLocalizedDescription", text("hidden")},
                                                   {"Path", text("C:\\x")}})}})},
         {"Numbered", error({{"UserInfo", numbered}})}}));
    auto const info_of = [](CFTypeRef of) {
        return adopt(CFErrorCopyUserInfo(static_cast<CFErrorRef>(const_cast<void *>(of))));
    };
    auto const info = info_of(value(status, "Error"));
    ASSERT_EQ(CFDictionaryGetCount(info.get()), 3);
    EXPECT_TRUE(CFEqual(CFDictionaryGetValue(info.get(), CFSTR("Path")), CFSTR("C:\\x")));
    EXPECT_TRUE(
        CFEqual(CFDictionaryGetValue(info.get(), kCFErrorLocalizedDescriptionKey), CFSTR("what")));
    auto const inner = CFDictionaryGetValue(info.get(), CFSTR("NSUnderlyingError"));
    EXPECT_TRUE(
        CFEqual(CFDictionaryGetValue(info_of(inner).get(), kCFErrorLocalizedFailureReasonKey),
                CFSTR("why")));
    EXPECT_TRUE(CFEqual(
        CFDictionaryGetValue(info_of(value(status, "Numbered")).get(), make_number(1).get()),
        CFSTR("one")));
}

TEST(SpecialValues, ATextHasParts) {
    auto const odd =
        dictionary({{"$type", text("text")},
                    {"Parts", array({text("aé😀"), integer(1), integer(0xD800), text("b")})}});
    auto const status = status_of(dictionary(
        {{"Text", odd},
         {"Empty", dictionary({{"$type", text("text")}, {"Parts", array({})}})},
         {"Error",
          dictionary({{"$type", text("error")}, {"Domain", odd}, {"Code", integer(1)}})}}));
    auto const read = static_cast<CFStringRef>(value(status, "Text"));
    ASSERT_EQ(CFGetTypeID(read), CFStringGetTypeID());
    std::u16string units;
    for (CFIndex index = 0; index < CFStringGetLength(read); ++index) {
        units += static_cast<char16_t>(CFStringGetCharacterAtIndex(read, index));
    }
    EXPECT_EQ(units, u"aé😀\x01\xD800"
                     u"b");
    EXPECT_TRUE(CFEqual(value(status, "Empty"), CFSTR("")));
    auto const error = static_cast<CFErrorRef>(const_cast<void *>(value(status, "Error")));
    EXPECT_TRUE(CFEqual(CFErrorGetDomain(error), read));
}

TEST(SpecialValues, NullIsAnObjectInsideAndANullPointerAsAWhole) {
    auto const null = dictionary({{"$type", text("null")}});
    EXPECT_FALSE(status_of(null));
    auto const status = status_of(dictionary({{"X", null}, {"Y", array({null})}}));
    EXPECT_EQ(value(status, "X"), kCFNull);
    EXPECT_EQ(CFArrayGetValueAtIndex(static_cast<CFArrayRef>(value(status, "Y")), 0), kCFNull);
}
