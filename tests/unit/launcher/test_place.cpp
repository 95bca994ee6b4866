#include "launcher/place.hpp"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

namespace {

using launcher::place_of_file;
using launcher::place_of_folder;

QN::filesystem::path const full = QN::filesystem::temp_directory_path();

TEST(place, of_a_full_path) {
    auto const place = place_of_folder("somewhere", full / "folder");
    EXPECT_EQ("somewhere", place.origin);
    EXPECT_EQ(full / "folder", place.folder);
    EXPECT_EQ("", place.fault);
}

TEST(place, of_a_file_is_its_folder) {
    EXPECT_EQ(full, place_of_file("", full / "some.dll").folder);
}

TEST(place, of_no_full_path) {
    for (auto const * const text :
         {"", ".", "folder", "folder/some.dll", "./folder", "../folder",
#ifdef _WIN32
          "\\folder", "/folder", "C:folder\\some.dll", "C:", "\"C:\\folder\""
#endif
         }) {
        for (auto const & place : {place_of_folder("", text), place_of_file("", text)}) {
            EXPECT_EQ("", place.folder);
            EXPECT_EQ('"' + std::string(text) + "\" is not a full path", place.fault);
        }
    }
}

#ifdef _WIN32
TEST(place, is_spelled_as_the_loader_wants_it) {
    EXPECT_EQ(L"C:\\a\\b", place_of_folder("", L"C:/a/b").folder.native());
    EXPECT_EQ(L"\\\\server\\share\\a",
              place_of_file("", L"//server/share/a/b.dll").folder.native());
    EXPECT_EQ(L"C:\\", place_of_file("", L"C:\\b.dll").folder.native());
}
#endif

} // namespace
