#pragma once

#include "doctor/finding.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace tests {

// Checks all of a finding: it has something to do if it is not ok, and nothing else.
inline void expect_finding(doctor::finding const & each, std::string_view id, doctor::verdict word,
                           std::string const & text) {
    EXPECT_EQ(id, each.id);
    EXPECT_EQ(word, each.word) << text;
    EXPECT_EQ(text, each.text);
    EXPECT_EQ(word == doctor::verdict::ok, each.what_to_do.empty()) << text;
}

} // namespace tests
