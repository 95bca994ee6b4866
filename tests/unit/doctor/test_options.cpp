#include "doctor/options.hpp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

doctor::options parse(std::vector<std::string> const & arguments) {
    return doctor::parse_options(arguments);
}

TEST(doctor_options, may_be_left_out) {
    EXPECT_FALSE(parse({}).json);
    EXPECT_FALSE(parse({}).help);
}

TEST(doctor_options, are_all_shown_by_help) {
    EXPECT_TRUE(parse({"--json"}).json);
    EXPECT_TRUE(parse({"--json", "--help"}).help);
    for (auto const * const option : {"--json", "--help"}) {
        EXPECT_NE(std::string::npos, doctor::help_text().find(std::string("\n  ") + option));
    }
}

TEST(doctor_options, are_refused_where_unknown) {
    for (std::string const wrong : {"--jso", "-h", "", "x", "--json=1"}) {
        try {
            parse({"--json", wrong});
            FAIL() << wrong;
        } catch (std::invalid_argument const & error) {
            EXPECT_EQ("unknown option '" + wrong + "'", error.what());
        }
    }
}

} // namespace
