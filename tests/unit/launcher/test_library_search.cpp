#include "launcher/library_search.hpp"

#include "tests/unit/helpers/temporary_folder.hpp"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <vector>

#ifndef _WIN32
#include <unistd.h>
#endif

namespace {

using launcher::library_search;
using launcher::place_of_folder;

class library_search_test : public testing::Test {
protected:
    QN::filesystem::path make_folder(std::string const & name) const {
        auto path = folder.path() / QN::path_from_utf8(name);
        QN::filesystem::create_directory(path);
        return path;
    }

    tests::temporary_folder folder;
    library_search search{"some.dll"};
};

TEST_F(library_search_test, finds_the_file) {
    auto const place = make_folder("Gerät 日本");
    tests::write_file(place / "some.dll", "");
    EXPECT_TRUE(search.look_in(place_of_folder("", place)));
    EXPECT_TRUE(search.found());
    EXPECT_EQ(place, search.folder());
    EXPECT_EQ(place / "some.dll", search.path());
}

TEST_F(library_search_test, finds_nothing_else) {
    auto const place = make_folder("other");
    tests::write_file(place / "other.dll", "");
    QN::filesystem::create_directory(make_folder("twisted") / "some.dll");
    EXPECT_FALSE(search.look_in(place_of_folder("", place)));
    EXPECT_FALSE(search.look_in(place_of_folder("", folder.path() / "twisted")));
    EXPECT_FALSE(search.look_in(place_of_folder("", folder.path() / "missing")));
    EXPECT_FALSE(search.look_in({"nowhere", {}, "not set"}));
    EXPECT_FALSE(search.found());
    EXPECT_EQ("", search.folder());
}

TEST_F(library_search_test, looks_in_each_place_until_it_is_found) {
    auto const second = make_folder("second");
    tests::write_file(second / "some.dll", "");
    std::vector const places{place_of_folder("1", folder.path()), place_of_folder("2", second),
                             place_of_folder("3", second)};
    EXPECT_TRUE(search.look_in_each(places));
    EXPECT_EQ(second, search.folder());
    ASSERT_EQ(2U, search.places().size());
    EXPECT_EQ("2", search.places().back().where.origin);
    EXPECT_EQ(launcher::finding::library, search.places().back().found);
    EXPECT_FALSE(search.refused());
    EXPECT_FALSE(library_search("other.dll").look_in_each(places));
}

#ifndef _WIN32
TEST_F(library_search_test, tells_where_access_is_denied) {
    auto const place = make_folder("closed");
    tests::write_file(place / "some.dll", "");
    permissions(place, QN::filesystem::no_perms);
    auto const is_refused = [&] {
        bool const dropped = getuid() != 0 || setuid(65534) == 0; // nothing is closed to root
        return dropped && !search.look_in(place_of_folder("there", place)) && search.refused() &&
               search.report("").ends_with(" (access denied)\n");
    };
    EXPECT_EXIT(_exit(is_refused() ? 3 : 4), testing::ExitedWithCode(3), "");
    permissions(place, QN::filesystem::owner_all);
}
#endif

TEST_F(library_search_test, reports_the_places_in_order) {
    auto const place = place_of_folder("one", folder.path());
    auto const last = make_folder("last");
    tests::write_file(last / "some.dll", "");
    search.look_in(place);
    search.look_in({"two", {}, "not set"});
    search.look_in(place_of_folder("three", last));
    EXPECT_EQ("It is wrong\nLooked for some.dll in:\n  one: " + QN::path_to_utf8(folder.path()) +
                  "\n  two: not set\n  three: " + QN::path_to_utf8(last) + " (found)\n",
              search.report("It is wrong"));
}

} // namespace
