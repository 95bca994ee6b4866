#include "QNRescue/restore_options_file.hpp"

#include "tests/unit/helpers/notifier_run.hpp"
#include "tests/unit/helpers/objects.hpp"

#include <boost/filesystem/operations.hpp>
#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

using namespace qnrescue;
using namespace tests;

constexpr auto some_options = "<plist><dict><key>a</key><string>b</string></dict></plist>";

// A notifier that has options already, and the path of a file to read others from.
struct options_run {
    options_run() { run.notifier.restoreOptions = retain(earlier.get()); }

    tool_error refusal(std::string const & reason) const {
        return {8, "Cannot open file '" + QN::path_to_utf8(path) + "' - " + reason};
    }

    void expect_untouched() const {
        EXPECT_EQ(run.notifier.restoreOptions.get(), earlier.get());
        EXPECT_EQ(CFGetRetainCount(earlier.get()), 2);
    }

    // Reads the options into the notifier; what that throws.
    tool_error load(data_factory wrap_bytes = CFDataCreateWithBytesNoCopy) {
        return error_of(
            [&] { run.notifier.restoreOptions = read_restore_options(path, wrap_bytes); });
    }

    notifier_run run;
    QN::filesystem::path const path = run.folder.path() / QN::path_from_utf8("größe.plist");
    cf_owner<CFDictionaryRef> const earlier = make_dictionary({{CFSTR("a"), CFSTR("earlier")}});
};

TEST(RestoreOptionsFile, ReplacesTheEarlierOptions) {
    options_run test;
    write_file(test.path, some_options);
    EXPECT_EQ(test.load(), (tool_error{0, ""}));
    EXPECT_TRUE(equal(test.run.notifier.restoreOptions.get(),
                      make_dictionary({{CFSTR("a"), CFSTR("b")}}).get()));
    EXPECT_EQ(CFGetRetainCount(test.run.notifier.restoreOptions.get()), 1);
    EXPECT_EQ(CFGetRetainCount(test.earlier.get()), 1);
}

TEST(RestoreOptionsFile, LeavesTheEarlierOptionsWhereItHoldsNone) {
    options_run test;
    struct row {
        std::string_view bytes;
        char const * reason;
    };
    constexpr row rows[] = {
        {"", "Empty file"},
        {"<plist><array/></plist>", "Invalid format"},
        {"<plist><string>text</string></plist>", "Invalid format"},
        {"<plist><integer>7</integer></plist>", "Invalid format"},
        {"<plist><dict>", "Invalid format"},
        {"@ this is no property list", "Invalid format"},
        {"{\"a\": 1}", "Invalid format"},
        {"\xff\xfe", "Invalid format"},
        {std::string_view("\0\0\0\0\0\0\0\0", 8), "Invalid format"},
    };
    for (auto const & [bytes, reason] : rows) {
        write_file(test.path, bytes);
        EXPECT_EQ(test.load(), test.refusal(reason));
        test.expect_untouched();
    }
}

TEST(RestoreOptionsFile, LeavesTheEarlierOptionsWhereItCannotBeRead) {
    options_run test;
    auto const error = test.load();
    EXPECT_EQ(error.code, 8);
    EXPECT_TRUE(error.reason.starts_with(
        test.refusal("when opening file '" + QN::path_to_utf8(test.path) + "' for reading: ")
            .reason))
        << error.reason;
    test.expect_untouched();
}

TEST(RestoreOptionsFile, LeavesTheEarlierOptionsWhereItIsTooLarge) {
    options_run test;
    write_file(test.path, "");
    QN::filesystem::resize_file(test.path, 1073741825);
    EXPECT_EQ(test.load(),
              test.refusal("'" + QN::path_to_utf8(test.path) +
                           "' is 1073741825 bytes (max size is 1073741824 bytes): File is too "
                           "large to fit into the buffer [QN::file:1]"));
    test.expect_untouched();
}

TEST(RestoreOptionsFile, LeavesTheEarlierOptionsWhereItsBytesCannotBeWrapped) {
    options_run test;
    write_file(test.path, some_options);
    auto const fail = [](CFAllocatorRef allocator, UInt8 const * bytes, CFIndex length,
                         CFAllocatorRef deallocator) -> CFDataRef {
        EXPECT_EQ(allocator, kCFAllocatorDefault);
        EXPECT_EQ(std::string_view(reinterpret_cast<char const *>(bytes),
                                   static_cast<std::size_t>(length)),
                  some_options);
        EXPECT_EQ(deallocator, kCFAllocatorNull);
        return nullptr;
    };
    EXPECT_EQ(test.load(fail), test.refusal("Bad alloc"));
    test.expect_untouched();
}

} // namespace
