#include "doctor/library_findings.hpp"

#include "launcher/installation_advice.hpp"
#include "launcher/library_image.hpp"
#include "tests/unit/doctor/expect_finding.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"
#include "tests/unit/launcher/made_library.hpp"

#include <boost/filesystem/operations.hpp>

#include <fmt/format.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using doctor::finding;
using doctor::library_findings;
using doctor::verdict;
using doctor::versions_finding;
using tests::expect_finding;

class library_findings_test : public testing::Test {
protected:
    library_findings_test() {
        for (auto const & each : {first, second, system}) {
            QN::filesystem::create_directory(each);
        }
        usable.exports = {"one", "two"};
        usable.version = {1, 2, 3, 4};
    }

    static void make(QN::filesystem::path const & in, tests::library_parts const & parts) {
        tests::write_file(in / "some.dll", tests::made_library(parts));
    }

    launcher::search_result search() const {
        return launcher::search_library(
            "some.dll",
            {[this] { return std::vector{launcher::place_of_folder("first place", first)}; },
             [] {
                 return std::vector{launcher::place{"registry", {}, "not set"}};
             },
             [this] { return std::vector{launcher::place_of_folder("second place", second)}; }},
            launcher::search_extent::everywhere);
    }

    std::vector<finding> findings() const {
        return library_findings(
            {search(),
             {"one", "two"},
             {[](std::string const &) { return QN::filesystem::path(); }, {}, system}});
    }

    // Checks that there is one such finding among them, and returns it.
    finding only(std::string_view id) const {
        auto const all = findings();
        EXPECT_EQ(1, std::ranges::count(all, id, &finding::id)) << id;
        auto const found = std::ranges::find(all, id, &finding::id);
        return found == all.end() ? finding{id, verdict::ok, ""} : *found;
    }

    static std::string file_in(QN::filesystem::path const & in) {
        return '"' + QN::path_to_utf8(in / "some.dll") + '"';
    }

    tests::temporary_folder folder;
    QN::filesystem::path const first = folder.path() / "first";
    QN::filesystem::path const second = folder.path() / QN::path_from_utf8("zweiter 日本");
    QN::filesystem::path const system = folder.path() / "system";
    tests::library_parts usable;
};

TEST_F(library_findings_test, of_each_place_in_order) {
    make(second, usable);
    auto const all = findings();
    ASSERT_EQ(3U, all.size());
    expect_finding(all[0], "library-place", verdict::ok,
                   "some.dll, first place: " + QN::path_to_utf8(first) + ": not there");
    expect_finding(all[1], "library-place", verdict::ok, "some.dll, registry: not set");
    expect_finding(all[2], "library-place", verdict::ok,
                   "some.dll, second place: " + QN::path_to_utf8(second) +
                       ": version 1.2.3.4, 64-bit, used");
}

TEST_F(library_findings_test, of_a_library_that_is_not_used) {
    make(first, usable);
    usable.version.reset();
    make(second, usable);
    auto const all = findings();
    ASSERT_EQ(3U, all.size());
    expect_finding(all[2], "library-place", verdict::ok,
                   "some.dll, second place: " + QN::path_to_utf8(second) +
                       ": without a version, 64-bit, not used");
}

TEST_F(library_findings_test, missing) {
    expect_finding(only("library-missing"), "library-missing", verdict::problem,
                   "some.dll was not found");
    make(second, usable);
    EXPECT_EQ(0, std::ranges::count(findings(), "library-missing", &finding::id));
}

TEST_F(library_findings_test, refused) {
    auto refused = search();
    refused.places.front().found = launcher::finding::refusal;
    auto const all = library_findings({refused, {}, {}});
    expect_finding(all[0], "library-place", verdict::warning,
                   "some.dll, first place: " + QN::path_to_utf8(first) + ": access denied");
    EXPECT_EQ("library-missing", all.back().id);
}

TEST_F(library_findings_test, damaged) {
    tests::write_file(first / "some.dll", "This is no library.");
    auto const all = findings();
    EXPECT_TRUE(all.front().text.ends_with(
        ": without a version, not a library, damaged or not readable, used"))
        << all.front().text;
    expect_finding(all[1], "library-damaged", verdict::problem,
                   file_in(first) + " is not a library, is damaged or cannot be read");
    EXPECT_EQ(launcher::installation_advice, all[1].what_to_do);
}

TEST_F(library_findings_test, for_another_processor) {
    usable.machine = launcher::machine_x86;
    usable.is_64_bit = false;
    make(first, usable);
    EXPECT_TRUE(findings().front().text.ends_with(": version 1.2.3.4, 32-bit, used"));
    expect_finding(only("library-processor"), "library-processor", verdict::problem,
                   file_in(first) + " is 32-bit; this program needs a 64-bit library for x64");
    usable.machine = 0xAA64;
    usable.is_64_bit = true;
    make(first, usable);
    expect_finding(only("library-processor"), "library-processor", verdict::problem,
                   file_in(first) + " is for another kind of processor (0xaa64); this program "
                                    "needs a 64-bit library for x64");
}

TEST_F(library_findings_test, lacking_names) {
    usable.exports = {"zero"};
    make(first, usable);
    expect_finding(only("library-names"), "library-names", verdict::problem,
                   file_in(first) + " lacks one, two");
}

TEST_F(library_findings_test, with_a_missing_dependency) {
    usable.imports = {{"near.dll", {}}, {"system.dll", {}}, {"gone.dll", {}}};
    make(first, usable);
    tests::write_file(first / "near.dll", tests::made_library({}));
    tests::write_file(system / "system.dll", "");
    expect_finding(only("library-dependency"), "library-dependency", verdict::warning,
                   "\"gone.dll\", which " + file_in(first) + " needs, is missing");
    tests::write_file(first / "gone.dll", tests::made_library({}));
    EXPECT_EQ(0, std::ranges::count(findings(), "library-dependency", &finding::id));
}

TEST_F(library_findings_test, of_a_faulty_library_that_is_not_used_are_warnings) {
    make(first, usable);
    usable.exports = {"one"};
    make(second, usable);
    expect_finding(only("library-names"), "library-names", verdict::warning,
                   file_in(second) + " lacks two");
}

TEST_F(library_findings_test, of_several_versions) {
    EXPECT_FALSE(versions_finding(search()));
    make(first, usable);
    EXPECT_FALSE(versions_finding(search()));
    make(second, usable);
    auto const both = fmt::format("{} (version 1.2.3.4) is used, not {} (version ", file_in(first),
                                  file_in(second));
    auto same = versions_finding(search());
    ASSERT_TRUE(same);
    expect_finding(*same, "library-versions", verdict::ok, both + "1.2.3.4)");
    usable.version = {1, 2, 3, 5};
    make(second, usable);
    auto const different = versions_finding(search());
    ASSERT_TRUE(different);
    expect_finding(*different, "library-versions", verdict::warning, both + "1.2.3.5)");
}

TEST_F(library_findings_test, of_one_file_in_two_places) {
    usable.exports = {"one"};
    make(first, usable);
    auto const twice = [this] {
        return std::vector{launcher::place_of_folder("", first),
                           launcher::place_of_folder("", first / "")};
    };
    auto const search =
        launcher::search_library("some.dll", {twice}, launcher::search_extent::everywhere);
    EXPECT_FALSE(versions_finding(search));
    auto const all = library_findings({search, {"one", "two"}, {}});
    ASSERT_EQ(3U, all.size());
    EXPECT_EQ("library-names", all[1].id);
    EXPECT_TRUE(all[0].text.ends_with(", used"));
    EXPECT_TRUE(all[2].text.ends_with(", used"));
}

TEST_F(library_findings_test, of_an_installation_for_32_bit_programs) {
    EXPECT_FALSE(doctor::finding_of_32_bit({}, false));
    auto const text = "The installation in \"" + QN::path_to_utf8(first) +
                      "\" is for 32-bit programs; this one needs 64-bit libraries";
    expect_finding(*doctor::finding_of_32_bit(first, false), "library-32-bit", verdict::warning,
                   text);
    expect_finding(*doctor::finding_of_32_bit(first, true), "library-32-bit", verdict::ok, text);
}

} // namespace
