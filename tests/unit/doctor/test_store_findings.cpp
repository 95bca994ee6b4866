#include "doctor/store_findings.hpp"

#include "tests/unit/doctor/expect_finding.hpp"
#include "tests/unit/helpers/temporary_folder.hpp"

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

using doctor::store_findings;
using doctor::verdict;
using tests::expect_finding;

TEST(store_findings, without_packages) {
    EXPECT_TRUE(store_findings({}, {}).empty());
}

TEST(store_findings, say_what_works_instead) {
    tests::temporary_folder const folder;
    auto const package = folder.path() / "package";
    auto const libraries = package / "AMDS64";
    auto const other = folder.path() / "other";
    QN::filesystem::create_directories(libraries);
    QN::filesystem::create_directory(other);
    auto const installed = "The app \"Apple_1\" of the Microsoft Store is installed in \"" +
                           QN::path_to_utf8(package) + '"';
    auto const refused =
        installed + "; it keeps its libraries where other programs may not load them";
    for (auto const & used : {QN::filesystem::path(), package, libraries}) {
        auto const findings = store_findings({{"Apple_1", package}}, used);
        ASSERT_EQ(1U, findings.size());
        expect_finding(findings[0], "store-app", verdict::warning, refused);
        EXPECT_NE(std::string::npos, findings[0].what_to_do.find("classic installer of iTunes"));
    }
    expect_finding(store_findings({{"Apple_1", package}}, other).at(0), "store-app", verdict::ok,
                   installed + "; its libraries are not used");
}

TEST(store_findings, of_each_package) {
    auto const findings = store_findings({{"Apple_1", {}}, {"Apple_2", {}}}, {});
    ASSERT_EQ(2U, findings.size());
    expect_finding(
        findings[1], "store-app", verdict::warning,
        "The app \"Apple_2\" of the Microsoft Store is installed; it keeps its libraries "
        "where other programs may not load them");
}

} // namespace
