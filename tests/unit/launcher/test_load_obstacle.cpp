#include "launcher/load_obstacle.hpp"

#include "tests/unit/helpers/temporary_folder.hpp"
#include "tests/unit/launcher/made_library.hpp"

#include <boost/filesystem/operations.hpp>

#include <fmt/format.h>

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

class load_obstacle_test : public testing::Test {
protected:
    load_obstacle_test() {
        for (auto const & each : {installed, other, system}) {
            QN::filesystem::create_directory(each);
        }
    }

    static void make(QN::filesystem::path const & file, tests::library_parts const & parts) {
        tests::write_file(file, tests::made_library(parts));
    }

    std::string obstacle() const {
        return launcher::load_obstacle(library, {[this](std::string const & needed) {
                                                     auto const found = loaded.find(needed);
                                                     return found == loaded.end()
                                                                ? QN::filesystem::path()
                                                                : found->second;
                                                 },
                                                 {installed, other},
                                                 system});
    }

    static std::string quoted(QN::filesystem::path const & path) {
        return '"' + QN::path_to_utf8(path) + '"';
    }
    static std::string needed(QN::filesystem::path const & path, QN::filesystem::path const & by) {
        return fmt::format("{}, which {} needs, ", quoted(path), quoted(by));
    }

    tests::temporary_folder folder;
    QN::filesystem::path const installed = folder.path() / "installed";
    QN::filesystem::path const other = folder.path() / "other";
    QN::filesystem::path const system = folder.path() / "system";
    QN::filesystem::path const library = installed / "library.dll";
    std::map<std::string, QN::filesystem::path> loaded;
};

TEST_F(load_obstacle_test, none) {
    make(library, {{{"API-MS-Win-core.dll", {"a"}},
                    {"ext-ms-win.dll", {}},
                    {"loaded.dll", {"b"}},
                    {"system.dll", {"c"}},
                    {"near.dll", {"d"}},
                    {"far.dll", {"e"}}},
                   {"f"}});
    loaded = {{"loaded.dll", system / "loaded.dll"}}; // not looked into
    tests::write_file(system / "system.dll", "taken for whole");
    make(installed / "near.dll", {{{"library.dll", {"f"}}}, {"d"}}); // each needs the other
    make(other / "far.dll", {{}, {"e"}});
    EXPECT_EQ("", obstacle());
}

TEST_F(load_obstacle_test, missing) {
    EXPECT_EQ(quoted(library) + " is missing", obstacle());
    make(library, {{{"near.dll", {}}}});
    EXPECT_EQ(needed("near.dll", library) + "is missing", obstacle());
    auto const near_library = installed / "near.dll";
    make(near_library, {{{"gone.dll", {}}}});
    EXPECT_EQ(needed("gone.dll", near_library) + "is missing", obstacle());
    loaded = {{"near.dll", system / "near.dll"}};
    EXPECT_EQ("", obstacle());
}

TEST_F(load_obstacle_test, the_first_folder_counts) {
    make(library, {{{"both.dll", {"a"}}}});
    make(other / "both.dll", {{}, {"a"}});
    EXPECT_EQ("", obstacle());
    make(installed / "both.dll", {});
    EXPECT_EQ(needed(installed / "both.dll", library) + "lacks a", obstacle());
}

TEST_F(load_obstacle_test, no_library) {
    tests::write_file(library, "This is no library.");
    EXPECT_EQ(quoted(library) + " is not a library, is damaged or cannot be read", obstacle());
    make(library, {{{"near.dll", {}}}});
    tests::write_file(installed / "near.dll", "");
    EXPECT_EQ(needed(installed / "near.dll", library) +
                  "is not a library, is damaged or cannot be read",
              obstacle());
}

TEST_F(load_obstacle_test, another_processor) {
    make(library, {{}, {}, launcher::machine_x86, false});
    EXPECT_EQ(quoted(library) + " is a 32-bit library; a 64-bit one is needed", obstacle());
    make(library, {{}, {}, 0xAA64});
    EXPECT_EQ(quoted(library) + " is a library for another kind of processor (0xaa64); one for x64 "
                                "is needed",
              obstacle());
    make(library, {{{"near.dll", {}}}});
    make(installed / "near.dll", {{}, {}, launcher::machine_x86, false});
    EXPECT_EQ(needed(installed / "near.dll", library) +
                  "is a 32-bit library; a 64-bit one is needed",
              obstacle());
}

TEST_F(load_obstacle_test, lacks_a_function) {
    make(library, {{{"near.dll", {"a", "c"}}}});
    make(installed / "near.dll", {{}, {"a", "b"}});
    EXPECT_EQ(needed(installed / "near.dll", library) + "lacks c", obstacle());
}

// Of two versions that do not go together, one is loaded already.
TEST_F(load_obstacle_test, loaded_library_lacks_a_function) {
    make(library, {{{"near.dll", {"a", "c"}}}});
    make(installed / "near.dll", {{}, {"a", "b", "c"}});
    make(other / "near.dll", {{}, {"a", "b"}});
    loaded = {{"near.dll", other / "near.dll"}};
    EXPECT_EQ(needed(other / "near.dll", library) + "lacks c", obstacle());
    loaded = {{"near.dll", installed / "near.dll"}};
    EXPECT_EQ("", obstacle());
}

TEST_F(load_obstacle_test, ends_where_libraries_do_not) {
    auto const chain = [](std::size_t i) { return fmt::format("chain{}.dll", i); };
    constexpr std::size_t length = 300;
    for (std::size_t i = 0; i < length; ++i) {
        make(installed / chain(i), {{{chain(i + 1), {}}}});
    }
    make(library, {{{chain(0), {}}}});
    EXPECT_EQ("", obstacle());
    make(library, {{{chain(length - 100), {}}}});
    EXPECT_EQ(needed(chain(length), installed / chain(length - 1)) + "is missing", obstacle());
}

} // namespace
