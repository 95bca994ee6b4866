#include "tests/unit/helpers/output_capture.hpp"

#include "QNRescue/error_domain.hpp"
#include "platform/cf_collections.hpp"

#include <gtest/gtest.h>

namespace {

using namespace qnrescue;
using tests::equal;
using tests::make_array;
using tests::make_dictionary;
using tests::output_capture;
using tests::plist;
using strings = std::vector<std::string>;

TEST(PrintValue, QueuesOneDocumentOfTypeAndValue) {
    output_capture capture;
    capture.state()->print_value(CFSTR("Kind"), tests::make_string("caf\xc3\xa9 <&").get());
    EXPECT_EQ(capture.out(), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                             "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                             "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                             "<plist version=\"1.0\">\n"
                             "<dict>\n"
                             "\t<key>Type</key>\n"
                             "\t<string>Kind</string>\n"
                             "\t<key>Value</key>\n"
                             "\t<string>caf\xc3\xa9 &lt;&amp;</string>\n"
                             "</dict>\n"
                             "</plist>\n"
                             "\n");
    EXPECT_EQ(capture.debug_lines(), strings{});
}

TEST(PrintValue, TakesAnyPropertyListValue) {
    constexpr char const * elements[] = {
        "<integer>-5</integer>",
        "<true/>",
        "<array/>",
        "<dict/>",
        "<real>0.5</real>",
        "<data>AAEC</data>",
        "<date>2024-01-02T03:04:05Z</date>",
        "<dict><key>a</key><array><string>b</string></array></dict>"};
    output_capture capture;
    for (auto const * element : elements) {
        capture.state()->print_value(CFSTR("T"), plist(element).get());
    }
    auto const documents = capture.documents();
    ASSERT_EQ(documents.size(), std::size(elements));
    for (std::size_t i = 0; i < documents.size(); ++i) {
        EXPECT_EQ(documents[i].type, "T");
        EXPECT_TRUE(equal(documents[i].value.get(), plist(elements[i]).get())) << elements[i];
    }
}

TEST(PrintValue, DocumentsFollowOneAnotherWhole) {
    output_capture capture;
    capture.state()->print_value(CFSTR("First"), kCFBooleanTrue);
    capture.state()->print_value(CFSTR("Second"), kCFBooleanFalse);
    auto const text = capture.out();
    auto const seam = text.find("</plist>\n\n<?xml ");
    ASSERT_NE(seam, std::string::npos);
    auto const documents = capture.documents();
    ASSERT_EQ(documents.size(), 2U);
    EXPECT_EQ(documents[0].type, "First");
    EXPECT_EQ(documents[1].type, "Second");
}

TEST(PrintValue, KeepsNeitherArgument) {
    auto const type = tests::make_string("a type that is no constant");
    auto const value = tests::make_string("a value that is no constant");
    output_capture capture;
    capture.state()->print_value(type.get(), value.get());
    capture.finish();
    EXPECT_EQ(CFGetRetainCount(type.get()), 1);
    EXPECT_EQ(CFGetRetainCount(value.get()), 1);
}

TEST(PrintValue, RefusesNothingAndNamelessValues) {
    output_capture capture;
    capture.state()->print_value(nullptr, kCFBooleanTrue);
    capture.state()->print_value(CFSTR(""), kCFBooleanTrue);
    capture.state()->print_value(CFSTR("Kind"), nullptr);
    EXPECT_EQ(capture.debug_lines(), strings(3, "print_value: invalid argument"));
    EXPECT_EQ(capture.out(), "");
}

TEST(PrintValue, RefusesWhatXmlCannotHold) {
    auto const set = tests::make_set({CFSTR("x")});
    auto const number = tests::make_number(5);
    auto const inner = make_array({set.get()});
    output_capture capture;
    capture.state()->print_value(CFSTR("Kind"), set.get());
    capture.state()->print_value(CFSTR("Kind"), make_dictionary({{CFSTR("a"), inner.get()}}).get());
    capture.state()->print_value(CFSTR("Kind"),
                                 make_dictionary({{number.get(), CFSTR("b")}}).get());
    capture.state()->print_value(CFSTR("Kind"), kCFNull);
    EXPECT_EQ(capture.debug_lines(), strings(4, "print_value: object not valid for XML plist"));
    EXPECT_EQ(capture.out(), "");
}

TEST(PrintValue, ReportsWhatCannotBeSerialised) {
    // XML repeats a container wherever it is referred to, and CoreFoundation has a limit to that.
    auto const repeated = make_array({CFSTR("x")});
    auto const value = make_mutable_array();
    for (int i = 0; i < 1538; ++i) {
        CFArrayAppendValue(value.get(), repeated.get());
    }
    output_capture capture;
    capture.state()->print_value(CFSTR("Kind"), value.get());
    auto const lines = capture.debug_lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_TRUE(
        lines[0].starts_with("print_value: CFPropertyListCreateData failed - Error Domain="))
        << lines[0];
    EXPECT_NE(lines[0].find("Too many nested arrays or dictionaries"), std::string::npos)
        << lines[0];
    EXPECT_EQ(capture.out(), "");
    EXPECT_EQ(CFGetRetainCount(value.get()), 1);
}

TEST(PrintValue, FailuresAreSilentWithoutDebugOutput) {
    output_capture capture(false);
    capture.state()->print_value(nullptr, nullptr);
    EXPECT_EQ(capture.debug_lines(), strings{});
    EXPECT_EQ(capture.out(), "");
}

TEST(PrintValue, OfAMessage) {
    output_capture capture;
    message_type message{"caf\xc3\xa9", plist("<array><integer>1</integer></array>")};
    capture.state()->print_value(message);
    EXPECT_EQ(CFGetRetainCount(message.value.get()), 1);
    auto const documents = capture.documents();
    ASSERT_EQ(documents.size(), 1U);
    EXPECT_EQ(documents[0].type, "caf\xc3\xa9");
    EXPECT_TRUE(equal(documents[0].value.get(), message.value.get()));
}

TEST(PrintValue, OfAnIncompleteMessage) {
    output_capture capture;
    capture.state()->print_value(message_type{"", retain<CFTypeRef>(kCFBooleanTrue)});
    capture.state()->print_value(message_type{"Kind", nullptr});
    EXPECT_EQ(capture.debug_lines(), strings(2, "print_value: invalid argument"));
}

TEST(PrintValue, OfAMessageWhoseTypeIsNoUtf8) {
    output_capture capture;
    message_type const message{"Kind \xff", plist("<true/>")};
    capture.state()->print_value(message);
    EXPECT_EQ(capture.debug_lines(), strings{"print_value: invalid argument"});
    EXPECT_EQ(capture.out(), "");
}

TEST(PrintFormattedError, IsAnInternalErrorDocument) {
    auto const error = CreateDomainError(Error::bad_state, "why");
    output_capture capture;
    capture.state()->print_formatted_error(error.get());
    auto const documents = capture.documents();
    ASSERT_EQ(documents.size(), 1U);
    EXPECT_EQ(documents[0].type, "InternalError");
    EXPECT_TRUE(equal(documents[0].value.get(), DictionaryFromError(error.get()).get()));
    EXPECT_EQ(CFGetRetainCount(error.get()), 1);
    EXPECT_EQ(capture.debug_lines(), strings{});
}

TEST(PrintFormattedError, RefusesNull) {
    output_capture capture;
    capture.state()->print_formatted_error(nullptr);
    EXPECT_EQ(capture.debug_lines(), strings{"print_formatted_error: invalid argument"});
    EXPECT_EQ(capture.out(), "");
}

} // namespace
