// Identities are replaced by others of the same form, always alike.
#include "recorder/pseudonyms.hpp"

#include <map>
#include <set>
#include <tuple>

#include <fmt/format.h>
#include <gtest/gtest.h>

using recorder::pseudonyms;

TEST(Pseudonyms, AnEcidKeepsItsDigits) {
    pseudonyms names;
    EXPECT_EQ(names.ecid(0), 0U);
    for (std::uint64_t const real : {0xCULL, 0x000C1A2B3C4D5E6FULL, 0xFFFFFFFFFFFFFFFFULL}) {
        auto const other = names.ecid(real);
        EXPECT_NE(other, real);
        EXPECT_EQ(fmt::format("{:X}", other).size(), fmt::format("{:X}", real).size());
        EXPECT_EQ(names.ecid(real), other);
        EXPECT_EQ(pseudonyms{}.ecid(real), other);
    }
}

TEST(Pseudonyms, NoTwoIdentitiesShareOne) {
    pseudonyms names;
    std::set<std::uint64_t> ecids;
    for (std::uint64_t real = 1; real < 16; ++real) {
        ecids.insert(names.ecid(real));
    }
    EXPECT_EQ(ecids.size(), 15U);
    std::set<std::string> serial_numbers;
    for (char digit = '0'; digit <= '9'; ++digit) {
        serial_numbers.insert(names.serial_number(std::string{'-', digit}));
    }
    EXPECT_EQ(serial_numbers.size(), 10U);
}

TEST(Pseudonyms, ASerialNumberKeepsItsForm) {
    pseudonyms names;
    auto const other = names.serial_number("F4GSm1QN0-8X");
    EXPECT_NE(other, "F4GSm1QN0-8X");
    std::string form;
    for (auto const character : other) {
        form += character >= '0' && character <= '9'   ? '0'
                : character >= 'A' && character <= 'Z' ? 'A'
                : character >= 'a' && character <= 'z' ? 'a'
                                                       : character;
    }
    EXPECT_EQ(form, "A0AAa0AA0-0A");
    EXPECT_EQ(names.serial_number("F4GSm1QN0-8X"), other);
}

TEST(Pseudonyms, AProductStringHasOtherDigits) {
    pseudonyms names;
    auto const ecid = names.ecid(0x000C1A2B3C4D5E6F);
    auto const other =
        names.product_string("Apple Device (iBoot-12) ECID:000C1A2B3C4D5E6F 987654321");
    EXPECT_TRUE(other.starts_with("Apple Device (iBoot-"));
    EXPECT_NE(other.find(fmt::format(") ECID:{:016X} ", ecid)), std::string::npos) << other;
    EXPECT_EQ(other.find("987654321"), std::string::npos);
}

TEST(Pseudonyms, APathKeepsItsShape) {
    pseudonyms names;
    auto const other = names.path("C:\\Users\\Jörg\\up.date.ipsw");
    EXPECT_TRUE(other.starts_with("C:\\")) << other;
    EXPECT_TRUE(other.ends_with(".ipsw")) << other;
    EXPECT_EQ(other.size(), std::string_view{"C:\\Users\\Jorg\\up.date.ipsw"}.size());
    EXPECT_EQ(other.find("Users"), std::string::npos);
    auto const sibling = names.path("C:\\Users\\x");
    EXPECT_EQ(other.substr(0, 9), sibling.substr(0, 9));
    EXPECT_TRUE(names.path("/home/joe").starts_with("/"));
    EXPECT_EQ(names.path("/home/joe").find("joe"), std::string::npos);
    EXPECT_EQ(names.path("C:\\log.001E2D4C0A91C026").find("001E2D4C"), std::string::npos);
}

TEST(Pseudonyms, AnExtensionThatMayBeANameIsReplaced) {
    for (auto const real : {"C:\\x\\backup.anna", "/home/.anna", "D:\\1.2.Anna", "/tmp/log.anna"}) {
        auto const other = pseudonyms{}.path(real);
        EXPECT_EQ(other.find("nna"), std::string::npos) << other;
        EXPECT_EQ(other.size(), std::string_view{real}.size());
    }
    EXPECT_TRUE(pseudonyms{}.path("C:\\joe\\x.IPSW").ends_with(".IPSW"));
    EXPECT_TRUE(pseudonyms{}.path("/joe/x.plist").ends_with(".plist"));
    EXPECT_EQ(pseudonyms{}.path("C:\\a.log\\joe").find("joe"), std::string::npos);
}

TEST(Pseudonyms, TheLongestIdentityIsReplaced) {
    pseudonyms names;
    std::map<std::string, std::string> others;
    for (std::string const real : {"ABCDEF", "ABCDEFGH", "ABCDEFGHKL", "ABCDXX", "ABCDEZ"}) {
        others[real] = names.serial_number(real);
    }
    for (auto const & [text, identity, rest] : {std::tuple{"ABCDEF", "ABCDEF", ""},
                                                {"ABCDEFGHK", "ABCDEFGH", "K"},
                                                {"ABCDEFGHKLM", "ABCDEFGHKL", "M"},
                                                {"ABCDEFZ", "ABCDEF", "Z"},
                                                {"ABCDEZZ", "ABCDEZ", "Z"},
                                                {"ABCDXXA", "ABCDXX", "A"}}) {
        EXPECT_EQ(names.text(text), others[identity] + rest);
        EXPECT_EQ(names.text(std::string{"- "} + text), "- " + others[identity] + rest);
    }
    EXPECT_EQ(names.text("ABCDEY ABCD"), "ABCDEY ABCD");
}

TEST(Pseudonyms, IdentitiesInsideATextAreReplaced) {
    pseudonyms names;
    auto const ecid = names.ecid(0x000C1A2B3C4D5E6F);
    auto const serial = names.serial_number("F4GSM1QN0D8X");
    auto const path = names.path("C:\\My Files\\a b.ipsw");
    EXPECT_EQ(names.text("device 000C1A2B3C4D5E6F (F4GSM1QN0D8X): C:\\My Files\\a b.ipsw is bad"),
              fmt::format("device {:016X} ({}): {} is bad", ecid, serial, path));
    EXPECT_EQ(names.text("0xc1a2b3c4d5e6f"), fmt::format("0x{:x}", ecid));
    auto const unknown =
        names.text("cannot open \"D:\\joe\\b.log\" and \\\\host\\share, and/or 5/6");
    EXPECT_EQ(unknown.find("joe"), std::string::npos) << unknown;
    EXPECT_EQ(unknown.find("share"), std::string::npos) << unknown;
    EXPECT_TRUE(unknown.starts_with("cannot open \"D:\\")) << unknown;
    EXPECT_TRUE(unknown.ends_with(" and/or 5/6")) << unknown;
}

TEST(Pseudonyms, EcidsAreFoundInDecimal) {
    pseudonyms names;
    auto const ecid = names.ecid(0x000C1A2B3C4D5E6F);
    EXPECT_EQ(names.text("number 3406472718147183"), fmt::format("number {}", ecid));
    EXPECT_EQ(names.integer("3406472718147183"), fmt::to_string(ecid));
    EXPECT_EQ(names.integer("34064727181471830"), "34064727181471830");
    auto const large = names.ecid(0xFFFFFFF000000001);
    EXPECT_EQ(names.integer("18446744004990074881"), fmt::to_string(large));
    EXPECT_EQ(names.integer("-68719476735"), fmt::to_string(static_cast<std::int64_t>(large)));
}

TEST(Pseudonyms, PathsInsideWordsAreReplaced) {
    for (auto const text :
         {"file:///C:/joe/x", "at=/joe/x", "(/joe/x)", "bad:C:\\joe", "My\\joe"}) {
        EXPECT_EQ(pseudonyms{}.text(text).find("joe"), std::string::npos) << text;
    }
    for (auto const text : {"Firmware/all_flash/iBoot.im4p", "https://gs.apple.com:443", "1 / 2"}) {
        EXPECT_EQ(pseudonyms{}.text(text), text);
    }
}

TEST(Pseudonyms, ShortTextsAreNotTakenForIdentities) {
    pseudonyms names;
    names.ecid(5);
    names.serial_number("A");
    EXPECT_EQ(names.text("A restore of 5 steps: Successful"), "A restore of 5 steps: Successful");
}
