#include "launcher/library_search.hpp"

#include "tests/unit/QNRescue/temporary_folder.hpp"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

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

TEST_F(library_search_test, reports_the_places_in_order) {
    auto const place = place_of_folder("one", folder.path());
    search.look_in(place);
    search.look_in({"two", {}, "not set"});
    EXPECT_EQ("It is wrong\nLooked for some.dll in:\n  one: " + QN::path_to_utf8(folder.path()) +
                  "\n  two: not set\n",
              search.report("It is wrong"));
}

} // namespace
