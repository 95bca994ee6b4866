#include "launcher/library_image.hpp"

#include "tests/unit/helpers/temporary_folder.hpp"
#include "tests/unit/launcher/made_library.hpp"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using launcher::imported_library;
using launcher::parse_library_image;
using tests::made_library;

tests::library_parts const some_parts{{{"one.dll", {"first", "second"}}, {"two.dll", {}}},
                                      {"alpha", "beta", "gamma"}};

void expect_some_parts(launcher::library_image const & image) {
    ASSERT_EQ(2U, image.imports.size());
    EXPECT_EQ("one.dll", image.imports[0].name);
    EXPECT_EQ((std::vector<std::string>{"first", "second"}), image.imports[0].functions);
    EXPECT_EQ("two.dll", image.imports[1].name);
    EXPECT_EQ(std::vector<std::string>{}, image.imports[1].functions);
    EXPECT_EQ((std::vector<std::string>{"alpha", "beta", "gamma"}), image.exports);
}

TEST(library_image, of_a_library) {
    auto const image = parse_library_image(made_library(some_parts));
    ASSERT_TRUE(image);
    EXPECT_EQ(launcher::machine_x64, image->machine);
    expect_some_parts(*image);
}

TEST(library_image, of_a_32_bit_library) {
    auto parts = some_parts;
    parts.machine = launcher::machine_x86;
    parts.is_64_bit = false;
    auto const image = parse_library_image(made_library(parts));
    ASSERT_TRUE(image);
    EXPECT_EQ(launcher::machine_x86, image->machine);
    expect_some_parts(*image);
}

// As some linkers make them.
TEST(library_image, without_look_up_tables) {
    auto parts = some_parts;
    parts.has_look_up_tables = false;
    auto const image = parse_library_image(made_library(parts));
    ASSERT_TRUE(image);
    expect_some_parts(*image);
}

TEST(library_image, with_a_version) {
    EXPECT_EQ(std::nullopt, parse_library_image(made_library(some_parts))->version);
    auto parts = some_parts;
    parts.version = {1, 2, 30, 0xFFFF};
    EXPECT_EQ(parts.version, parse_library_image(made_library(parts))->version);
    parts.is_64_bit = false;
    EXPECT_EQ(parts.version, parse_library_image(made_library(parts))->version);
}

TEST(library_image, with_a_damaged_version) {
    auto parts = some_parts;
    parts.version = {1, 2, 3, 4};
    auto bytes = made_library(parts);
    bytes[bytes.find("\xBD\x04\xEF\xFE")] = '\0';
    auto const image = parse_library_image(bytes);
    ASSERT_TRUE(image);
    EXPECT_EQ(std::nullopt, image->version);
    expect_some_parts(*image);
}

TEST(library_image, sorts_the_exports) {
    auto const image = parse_library_image(made_library({{}, {"gamma", "alpha", "beta"}}));
    ASSERT_TRUE(image);
    EXPECT_EQ((std::vector<std::string>{"alpha", "beta", "gamma"}), image->exports);
}

TEST(library_image, of_more_sections_than_windows_loads) {
    auto bytes = made_library({{}, {std::string(10000, 'x')}});
    constexpr std::size_t section_count = 0x86;
    bytes[section_count] = 96; // the others are wrong, but not used
    EXPECT_TRUE(parse_library_image(bytes));
    bytes[section_count] = 97;
    EXPECT_FALSE(parse_library_image(bytes));
}

TEST(library_image, without_tables) {
    auto const image = parse_library_image(made_library({}));
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->imports.empty());
    EXPECT_TRUE(image->exports.empty());
}

TEST(library_image, of_no_library) {
    for (auto const & bytes : {std::string(), std::string("MZ"), std::string("This is none."),
                               std::string(1000, '\0'), "MZ" + std::string(1000, '\xFF')}) {
        EXPECT_FALSE(parse_library_image(bytes));
    }
}

TEST(library_image, of_a_library_that_breaks_off) {
    auto const whole = made_library(some_parts);
    std::size_t refused = 0;
    for (std::size_t size = 0; size < whole.size(); ++size) {
        refused += !parse_library_image(std::string(whole, 0, size));
    }
    EXPECT_GT(refused, whole.size() - 40); // the last bytes say nothing
}

// The sanitizers see what is read outside the file.
TEST(library_image, of_a_library_with_a_wrong_byte) {
    auto parts = some_parts;
    parts.version = {1, 2, 3, 4};
    auto const whole = made_library(parts);
    std::size_t other = 0;
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (char const wrong : {'\x01', '\x7F', '\x80', '\xFF'}) {
            auto bytes = whole;
            bytes[at] = wrong;
            auto const image = parse_library_image(bytes);
            other += !image || image->exports.size() != 3 || image->imports.size() != 2;
        }
    }
    EXPECT_GT(other, 100U);
}

TEST(library_image, of_names_that_overlap) {
    // All names become the first one: together they are far longer than the file.
    tests::library_parts parts;
    parts.exports.assign(1000, "x");
    parts.exports.front() = std::string(10000, 'x');
    auto bytes = made_library(parts);
    ASSERT_TRUE(parse_library_image(bytes));
    auto const names =
        bytes.find(std::string(10000, 'x')) - 4008; // with eight bytes behind the table
    for (std::size_t i = 1; i < parts.exports.size(); ++i) {
        bytes.replace(names + 4 * i, 4, bytes, names, 4);
    }
    EXPECT_FALSE(parse_library_image(bytes));
}

TEST(library_image, of_a_file) {
    tests::temporary_folder const folder;
    auto const file = folder.path() / QN::path_from_utf8("Gerät 日本.dll");
    EXPECT_FALSE(launcher::read_library_image(file));
    tests::write_file(file, made_library(some_parts));
    auto const image = launcher::read_library_image(file);
    ASSERT_TRUE(image);
    expect_some_parts(*image);
    EXPECT_FALSE(launcher::read_library_image(folder.path()));
    constexpr std::uintmax_t more_than_any_library = (1U << 28) + 1;
    resize_file(file, more_than_any_library);
    EXPECT_FALSE(launcher::read_library_image(file));
}

} // namespace
