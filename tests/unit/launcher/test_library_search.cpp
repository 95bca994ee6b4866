#include "launcher/library_search.hpp"

#include "tests/unit/helpers/temporary_folder.hpp"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <vector>

#ifndef _WIN32
#include <unistd.h>
#endif

namespace {

using launcher::finding;
using launcher::place_of_folder;
using launcher::place_source;
using launcher::search_extent;
using launcher::search_library;

constexpr auto name = "some.dll";

place_source at(launcher::place const & place) {
    return [place] { return std::vector{place}; };
}
place_source at(QN::filesystem::path const & folder) {
    return at(place_of_folder("", folder));
}

class library_search_test : public testing::Test {
protected:
    QN::filesystem::path make_folder(std::string const & folder_name) const {
        auto path = folder.path() / QN::path_from_utf8(folder_name);
        QN::filesystem::create_directory(path);
        return path;
    }

    QN::filesystem::path make_folder_with_library(std::string const & folder_name) const {
        auto path = make_folder(folder_name);
        tests::write_file(path / name, "");
        return path;
    }

    tests::temporary_folder folder;
};

TEST_F(library_search_test, finds_the_file) {
    auto const place = make_folder_with_library("Gerät 日本");
    auto const result = search_library(name, {at(place)});
    EXPECT_TRUE(result.found());
    EXPECT_EQ(place, result.folder());
    EXPECT_EQ(place / name, result.path());
}

TEST_F(library_search_test, finds_nothing_else) {
    auto const place = make_folder("other");
    tests::write_file(place / "other.dll", "");
    auto const twisted = make_folder("twisted");
    QN::filesystem::create_directory(twisted / name);
    auto const result = search_library(name, {at(place), at(twisted), at(folder.path() / "missing"),
                                              at(launcher::place{"nowhere", {}, "not set"})});
    EXPECT_EQ(4U, result.places.size());
    EXPECT_FALSE(result.found());
    EXPECT_EQ("", result.folder());
}

TEST_F(library_search_test, looks_in_each_place_until_it_is_found) {
    auto const second = make_folder_with_library("second");
    std::vector const places{place_of_folder("1", folder.path()), place_of_folder("2", second),
                             place_of_folder("3", second)};
    bool is_asked = false;
    auto const result = search_library(name, {[&] { return places; },
                                              [&] {
                                                  is_asked = true;
                                                  return places;
                                              }});
    EXPECT_EQ(second, result.folder());
    ASSERT_EQ(2U, result.places.size());
    EXPECT_EQ("2", result.places.back().where.origin);
    EXPECT_EQ(finding::library, result.places.back().found);
    EXPECT_FALSE(result.refused());
    EXPECT_FALSE(is_asked);
}

TEST_F(library_search_test, looks_everywhere_when_asked_to) {
    auto const second = make_folder_with_library("second");
    auto const fourth = make_folder_with_library("fourth");
    auto const result =
        search_library(name, {at(folder.path()), at(second), at(folder.path()), at(fourth)},
                       search_extent::everywhere);
    EXPECT_EQ(second, result.folder());
    ASSERT_EQ(4U, result.places.size());
    EXPECT_EQ(finding::nothing, result.places[2].found);
    EXPECT_EQ(finding::library, result.places[3].found);
}

#ifndef _WIN32
TEST_F(library_search_test, says_where_access_is_denied) {
    auto const place = make_folder_with_library("closed");
    permissions(place, QN::filesystem::no_perms);
    auto const is_refused = [&] {
        bool const dropped = getuid() != 0 || setuid(65534) == 0; // nothing is closed to root
        auto const result = search_library(name, {at(place)});
        return dropped && !result.found() && result.refused() &&
               result.report("").ends_with(" (access denied)\n");
    };
    EXPECT_EXIT(_exit(is_refused() ? 3 : 4), testing::ExitedWithCode(3), "");
    permissions(place, QN::filesystem::owner_all);
}
#endif

TEST_F(library_search_test, reports_the_places_in_order) {
    auto const last = make_folder_with_library("last");
    auto const result = search_library(name, {at(place_of_folder("one", folder.path())),
                                              at(launcher::place{"two", {}, "not set"}),
                                              at(place_of_folder("three", last))});
    EXPECT_EQ("It is wrong\nLooked for some.dll in:\n  one: " + QN::path_to_utf8(folder.path()) +
                  "\n  two: not set\n  three: " + QN::path_to_utf8(last) + " (found)\n",
              result.report("It is wrong"));
}

} // namespace
