// What counts as a bundle that can be restored from.
#include "simulator/MobileDevice/restore_bundle.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"

#include <algorithm>
#include <cstdint>

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

using mobile_device::check_restore_bundle;

namespace {

std::string little_endian(std::uint64_t value, int width) {
    std::string result;
    for (int index = 0; index < width; ++index) {
        result += static_cast<char>(value >> (8 * index) & 0xFF);
    }
    return result;
}

std::string local_entry(std::string const & name) {
    return "PK\x03\x04" + std::string(22, '\0') + little_endian(name.size(), 2) +
           little_endian(0, 2) + name;
}

std::string central_entry(std::string const & name, std::string const & extra = {},
                          std::string const & comment = {}) {
    return "PK\x01\x02" + std::string(24, '\0') + little_endian(name.size(), 2) +
           little_endian(extra.size(), 2) + little_endian(comment.size(), 2) +
           std::string(12, '\0') + name + extra + comment;
}

std::string end_record(std::uint64_t size, std::uint64_t offset, std::string const & comment = {}) {
    return "PK\x05\x06" + std::string(8, '\0') + little_endian(size, 4) + little_endian(offset, 4) +
           little_endian(comment.size(), 2) + comment;
}

std::string archive(std::string const & central, std::string const & comment = {}) {
    auto const content = local_entry("any");
    return content + central + end_record(central.size(), content.size(), comment);
}

// Keeps the place of the central directory where archives beyond 4 GB have it.
std::string large_archive(std::string const & central) {
    auto const content = local_entry("any");
    auto const record = "PK\x06\x06" + std::string(36, '\0') + little_endian(central.size(), 8) +
                        little_endian(content.size(), 8);
    auto const locator = "PK\x06\x07" + std::string(4, '\0') +
                         little_endian(content.size() + central.size(), 8) + little_endian(1, 4);
    return content + central + record + locator + end_record(0xFFFFFFFF, 0xFFFFFFFF);
}

class RestoreBundle : public testing::Test {
protected:
    // The AMR error of a file with this content; 0 where it can be restored from.
    int error_of(std::string const & content) const {
        auto const fault = check_restore_bundle(folder.write("bundle 束.ipsw", content));
        return fault ? fault->error : 0;
    }

    tests::temporary_folder folder;
    std::string const manifest = central_entry("BuildManifest.plist");
};

} // namespace

TEST_F(RestoreBundle, AnArchiveWithTheManifestIsOne) {
    EXPECT_EQ(error_of(archive(manifest)), 0);
    EXPECT_EQ(error_of(archive(central_entry("Firmware/x", "extra", "comment") + manifest)), 0);
    EXPECT_EQ(error_of(archive(manifest, "a comment at the end")), 0);
    EXPECT_EQ(error_of(archive(manifest, std::string(0xFFFF, 'x'))), 0);
    EXPECT_EQ(error_of(large_archive(central_entry("first") + manifest)), 0);
}

TEST_F(RestoreBundle, AnArchiveWithoutTheManifestIsNone) {
    EXPECT_EQ(error_of(archive("")), 11);
    EXPECT_EQ(error_of(archive(central_entry("Other.plist"))), 11);
    EXPECT_EQ(error_of(archive(central_entry("Folder/BuildManifest.plist"))), 11);
    EXPECT_EQ(error_of(archive(central_entry("buildmanifest.plist"))), 11);
    EXPECT_EQ(error_of(large_archive(central_entry("Other.plist"))), 11);
}

TEST_F(RestoreBundle, ABrokenArchiveIsNone) {
    EXPECT_EQ(error_of(""), 11);
    EXPECT_EQ(error_of("BuildManifest.plist"), 11);
    EXPECT_EQ(error_of(std::string(100000, 'x')), 11);
    EXPECT_EQ(error_of(end_record(100, 0)), 11);
    EXPECT_EQ(error_of(end_record(0xFFFFFFFF, 0xFFFFFFFF)), 11);
    for (auto const & whole : {archive(manifest), large_archive(manifest)}) {
        for (std::size_t size = 0; size < whole.size(); ++size) {
            ASSERT_EQ(error_of(whole.substr(0, size)), 11) << size;
        }
    }
}

TEST_F(RestoreBundle, NoByteOfAnArchiveCanDoHarm) {
    auto const whole = large_archive(central_entry("first", "x") + manifest);
    for (std::size_t index = 0; index < whole.size(); ++index) {
        auto changed = whole;
        changed[index] = static_cast<char>(~changed[index]);
        auto const error = error_of(changed);
        EXPECT_TRUE(error == 0 || error == 11) << index;
    }
}

TEST_F(RestoreBundle, AFolderNeedsTheManifest) {
    QN::filesystem::create_directory(folder / "Bündel");
    auto const path = folder.utf8("Bündel");
    ASSERT_TRUE(check_restore_bundle(path));
    EXPECT_EQ(check_restore_bundle(path)->error, 11);
    folder.write("Bündel/BuildManifest.plist", "");
    EXPECT_FALSE(check_restore_bundle(path));
}

TEST_F(RestoreBundle, WhatDoesNotExistIsNone) {
    auto const fault = check_restore_bundle(folder.utf8("missing"));
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->error, 17);
    EXPECT_NE(fault->description.find("missing"), std::string::npos);
    ASSERT_TRUE(check_restore_bundle(""));
    EXPECT_EQ(check_restore_bundle("")->error, 17);
}

TEST_F(RestoreBundle, WhatCannotBeAPathIsNone) {
    auto const path = folder.write("bundle.ipsw", archive(manifest));
    for (auto const & no_path :
         {path + '\0' + "x", path + '\0', path + "\xFF", std::string{"\xC3"}}) {
        auto const fault = check_restore_bundle(no_path);
        ASSERT_TRUE(fault);
        EXPECT_EQ(fault->error, 17);
    }
}
