#include "tests/unit/simulator/CoreFoundation/objects.hpp"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using error_entries = std::vector<std::pair<char const *, char const *>>;

cf_owner<CFErrorRef> error(char const * domain, CFIndex code, error_entries const & entries = {}) {
    auto const info = dictionary();
    for (auto const & [key, value] : entries) {
        CFDictionarySetValue(info.get(), string(key).get(), string(value).get());
    }
    return adopt(CFErrorCreate(nullptr, string(domain).get(), code, info.get()));
}

std::string text_of(cf_owner<CFErrorRef> const & fault) {
    return utf8(adopt(CFErrorCopyDescription(fault.get())));
}

std::string reason_of(cf_owner<CFErrorRef> const & fault) {
    return utf8(adopt(CFErrorCopyFailureReason(fault.get())));
}

#define COULD_NOT "The operation couldn\xe2\x80\x99t be completed. "

TEST(Error, ComposesItsTexts) {
    struct {
        error_entries info;
        char const * text;
        char const * reason;
        char const * description; // with one entry; several have no order
    } const rows[] = {
        {{}, COULD_NOT "(qnrescue error 1.)", "(null)", "\"(null)\""},
        {{{"NSLocalizedDescription", "the desc"}},
         "the desc",
         "(null)",
         "\"the desc\" UserInfo={NSLocalizedDescription=the desc}"},
        {{{"NSLocalizedDescription", ""}}, "", "(null)", "\"\" UserInfo={NSLocalizedDescription=}"},
        {{{"NSLocalizedFailureReason", "the reason"}},
         COULD_NOT "the reason",
         "the reason",
         "\"the reason\" UserInfo={NSLocalizedFailureReason=the reason}"},
        {{{"NSLocalizedDescription", "the desc"}, {"NSLocalizedFailureReason", "the reason"}},
         "the desc",
         "the reason",
         "\"the desc\" UserInfo={"},
        {{{"NSDescription", "the nsdesc"}},
         COULD_NOT "(qnrescue error 1 - the nsdesc)",
         "(null)",
         "\"the nsdesc\" UserInfo={NSDescription=the nsdesc}"},
        {{{"NSDebugDescription", "the debug"}},
         COULD_NOT "(qnrescue error 1.)",
         "(null)",
         "\"the debug\" UserInfo={NSDebugDescription=the debug}"},
        {{{"NSDescription", "nsd"}, {"NSDebugDescription", "dbg"}},
         COULD_NOT "(qnrescue error 1 - nsd)",
         "(null)",
         "\"nsd\" (dbg) UserInfo={"},
        {{{"NSDescription", "same"}, {"NSDebugDescription", "same"}},
         COULD_NOT "(qnrescue error 1 - same)",
         "(null)",
         "\"same\" UserInfo={"},
        {{{"NSLocalizedDescription", "ld"}, {"NSDebugDescription", "dbg"}},
         "ld",
         "(null)",
         "\"dbg\" UserInfo={"},
        {{{"NSLocalizedFailureReason", "rsn"}, {"NSDescription", "nsd"}},
         COULD_NOT "rsn",
         "rsn",
         "\"nsd\" UserInfo={"},
        {{{"NSLocalizedFailure", "fail."}, {"NSLocalizedFailureReason", "because."}},
         "fail. because.",
         "because.",
         "\"because.\" UserInfo={"},
        {{{"NSLocalizedFailure", "fail."}},
         "fail.",
         "(null)",
         "\"(null)\" UserInfo={NSLocalizedFailure=fail.}"},
        {{{"NSLocalizedRecoverySuggestion", "try again"}},
         COULD_NOT "(qnrescue error 1.)",
         "(null)",
         "\"(null)\" UserInfo={NSLocalizedRecoverySuggestion=try again}"},
        {{{"foo", "bar"}},
         COULD_NOT "(qnrescue error 1.)",
         "(null)",
         "\"(null)\" UserInfo={foo=bar}"},
    };
    for (auto const & row : rows) {
        auto const fault = error("qnrescue", 1, row.info);
        auto const described = "Error Domain=qnrescue Code=1 " + std::string{row.description};
        SCOPED_TRACE(described);
        EXPECT_EQ(text_of(fault), row.text);
        EXPECT_EQ(reason_of(fault), row.reason);
        auto const actual = description(fault.get());
        if (row.info.size() > 1) {
            EXPECT_EQ(actual.substr(0, described.size()), described);
            for (auto const & [key, value] : row.info) {
                EXPECT_NE(actual.find(std::string{key} + "=" + value), std::string::npos) << actual;
            }
            EXPECT_NE(actual.find(", "), std::string::npos) << actual;
        } else {
            EXPECT_EQ(actual, described);
        }
    }
}

TEST(Error, PrintsCodeAndDomainAsTheyAre) {
    struct {
        char const * domain;
        CFIndex code;
        char const * text;
        char const * description;
    } const rows[] = {
        {"d", -1, COULD_NOT "(d error -1.)", "Error Domain=d Code=-1 \"(null)\""},
        {"d", 1099511627776, COULD_NOT "(d error 1099511627776.)",
         "Error Domain=d Code=1099511627776 \"(null)\""},
        {"", 1, COULD_NOT "( error 1.)", "Error Domain= Code=1 \"(null)\""},
        {"NSOSStatusErrorDomain", -50, COULD_NOT "(NSOSStatusErrorDomain error -50.)",
         "Error Domain=NSOSStatusErrorDomain Code=-50 \"(null)\""},
        {"NSMachErrorDomain", 5, COULD_NOT "(NSMachErrorDomain error 5.)",
         "Error Domain=NSMachErrorDomain Code=5 \"(null)\""},
        {"NSCocoaErrorDomain", 260, COULD_NOT "(NSCocoaErrorDomain error 260.)",
         "Error Domain=NSCocoaErrorDomain Code=260 \"(null)\""},
    };
    for (auto const & row : rows) {
        auto const fault = error(row.domain, row.code);
        EXPECT_EQ(CFErrorGetCode(fault.get()), row.code);
        EXPECT_EQ(utf8(CFErrorGetDomain(fault.get())), row.domain);
        EXPECT_EQ(text_of(fault), row.text);
        EXPECT_EQ(description(fault.get()), row.description);
    }
}

TEST(Error, AsksTheCLibraryAboutPosixErrors) {
    for (int const code : {2, 13, 0, 99999}) {
        std::string const reason = std::strerror(code);
        auto const fault = error("NSPOSIXErrorDomain", code);
        EXPECT_EQ(reason_of(fault), reason);
        EXPECT_EQ(text_of(fault), COULD_NOT + reason);
        EXPECT_EQ(description(fault.get()), "Error Domain=NSPOSIXErrorDomain Code=" +
                                                std::to_string(code) + " \"" + reason + "\"");
    }
    EXPECT_EQ(reason_of(error("NSPOSIXErrorDomain", 2)), "No such file or directory");
    auto const described = error("NSPOSIXErrorDomain", 2, {{"NSLocalizedDescription", "ld"}});
    EXPECT_EQ(text_of(described), "ld");
    EXPECT_EQ(reason_of(described), "No such file or directory");
    auto const failed = error("NSPOSIXErrorDomain", 2, {{"NSLocalizedFailure", "Cannot open."}});
    EXPECT_EQ(text_of(failed), "Cannot open. No such file or directory");
    EXPECT_EQ(reason_of(failed), "No such file or directory");
}

TEST(Error, HasUserInfoEvenWithout) {
    auto const fault = adopt(CFErrorCreate(nullptr, CFSTR("d"), 1, nullptr));
    auto const info = adopt(CFErrorCopyUserInfo(fault.get()));
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(CFDictionaryGetCount(info.get()), 0);
    EXPECT_EQ(text_of(fault), COULD_NOT "(d error 1.)");
    EXPECT_TRUE(CFEqual(fault.get(), error("d", 1).get()));
}

TEST(Error, CopiesItsUserInfo) {
    auto const info = dictionary();
    auto const fault = adopt(CFErrorCreate(nullptr, CFSTR("d"), 1, info.get()));
    CFDictionarySetValue(info.get(), kCFErrorLocalizedDescriptionKey, CFSTR("late"));
    EXPECT_EQ(text_of(fault), COULD_NOT "(d error 1.)");
    EXPECT_EQ(CFDictionaryGetCount(adopt(CFErrorCopyUserInfo(fault.get())).get()), 0);
}

TEST(Error, ReturnsAnyObjectAsItsDescription) {
    auto const info = dictionary();
    CFDictionarySetValue(info.get(), kCFErrorLocalizedDescriptionKey, integer(1000).get());
    CFDictionarySetValue(info.get(), kCFErrorLocalizedFailureReasonKey, kCFBooleanTrue);
    auto const fault = adopt(CFErrorCreate(nullptr, CFSTR("d"), 1, info.get()));
    auto const text = adopt(CFErrorCopyDescription(fault.get()));
    EXPECT_EQ(CFGetTypeID(text.get()), CFNumberGetTypeID());
    EXPECT_EQ(adopt(CFErrorCopyFailureReason(fault.get())).get(),
              static_cast<void const *>(kCFBooleanTrue));
}

TEST(Error, ShowsValuesPlainlyAndAnUnderlyingErrorWithItsAddress) {
    auto const inner = error("in", 7, {{"NSLocalizedDescription", "inner"}});
    struct {
        CFStringRef key;
        cf_owner<CFTypeRef> value;
        char const * text;
    } const rows[] = {
        {CFSTR("NSUnderlyingError"), adopt(CFRetain(inner.get())),
         "NSUnderlyingError=PTR {Error Domain=in Code=7 \"inner\" "
         "UserInfo={NSLocalizedDescription=inner}}"},
        {CFSTR("other"), adopt(CFRetain(inner.get())),
         "other=Error Domain=in Code=7 \"inner\" UserInfo={NSLocalizedDescription=inner}"},
        {CFSTR("n"), adopt(CFTypeRef{real(0.1).release()}), "n=0.10000000000000001"},
        {CFSTR("n"), adopt(CFTypeRef{real(1e17).release()}), "n=1e+17"},
        {CFSTR("n"), adopt(CFTypeRef{real(0).release()}), "n=0.0"},
        {CFSTR("n"), adopt(CFTypeRef{integer(-5).release()}), "n=-5"},
        {CFSTR("b"), adopt(CFRetain(kCFBooleanFalse)), "b=false"},
        {CFSTR("null"), adopt(CFRetain(kCFNull)), "null=null"},
    };
    for (auto const & row : rows) {
        auto const info = dictionary();
        CFDictionarySetValue(info.get(), row.key, row.value.get());
        auto const outer = adopt(CFErrorCreate(nullptr, CFSTR("out"), 1, info.get()));
        EXPECT_EQ(description(outer.get()),
                  std::string{"Error Domain=out Code=1 \"(null)\" UserInfo={"} + row.text + "}");
    }
}

TEST(Error, EqualsByCodeDomainAndUserInfo) {
    auto const fault = error("d", 1, {{"k", "v"}});
    auto const same = error("d", 1, {{"k", "v"}});
    EXPECT_TRUE(CFEqual(fault.get(), same.get()));
    EXPECT_EQ(CFHash(fault.get()), CFHash(same.get()));
    EXPECT_EQ(CFHash(error("d", 5).get()), CFHash(CFSTR("d")) + 5);
    EXPECT_FALSE(CFEqual(fault.get(), error("d", 2, {{"k", "v"}}).get()));
    EXPECT_FALSE(CFEqual(fault.get(), error("e", 1, {{"k", "v"}}).get()));
    EXPECT_FALSE(CFEqual(fault.get(), error("d", 1, {{"k", "w"}}).get()));
    EXPECT_FALSE(CFEqual(fault.get(), error("d", 1).get()));
}

TEST(Error, NamesItsKeys) {
    EXPECT_EQ(utf8(kCFErrorLocalizedDescriptionKey), "NSLocalizedDescription");
    EXPECT_EQ(utf8(kCFErrorLocalizedFailureReasonKey), "NSLocalizedFailureReason");
}

} // namespace
