#include "QNRescue/exception_errors.hpp"

#include "platform/cf_strings.hpp"
#include "tests/unit/helpers/objects.hpp"

#include <boost/program_options/cmdline.hpp>
#include <boost/program_options/errors.hpp>

#include <gtest/gtest.h>

#include <exception>
#include <new>
#include <stdexcept>

namespace {

using namespace qnrescue;
using tests::tool_error;
namespace options = boost::program_options;

template <typename Exception>
tool_error converted(Exception const & exception) {
    try {
        // NOLINTNEXTLINE(cert-err60-cpp): those of Boost hold texts
        throw exception;
    } catch (...) {
        auto const error = domain_error_of_current_exception();
        EXPECT_EQ(MakeString(CFErrorGetDomain(error.get())), "qnrescue");
        return tests::said_by(error);
    }
}

TEST(ExceptionErrors, MultipleOccurrencesNameTheOption) {
    options::multiple_occurrences exception;
    exception.set_option_name("ecid");
    exception.set_prefix(options::command_line_style::allow_long);
    EXPECT_EQ(converted(exception), (tool_error{3, "Option '--ecid' may only be specified once"}));
}

TEST(ExceptionErrors, UnknownOptionIsABadCommand) {
    options::unknown_option const exception("frobnicate");
    EXPECT_EQ(converted(exception), (tool_error{3, exception.what()}));
}

TEST(ExceptionErrors, InvalidOptionValueIsAnInvalidArgument) {
    options::invalid_option_value const exception("abc");
    EXPECT_EQ(converted(exception), (tool_error{2, exception.what()}));
}

TEST(ExceptionErrors, EverythingElseIsUnknown) {
    EXPECT_EQ(converted(std::runtime_error("text")), (tool_error{1, "text"}));
    EXPECT_EQ(converted(std::invalid_argument("text")), (tool_error{1, "text"}));
    EXPECT_EQ(converted(std::length_error("text")), (tool_error{1, "text"}));
    EXPECT_EQ(converted(std::bad_alloc()), (tool_error{1, std::bad_alloc().what()}));
    options::required_option const required("restore");
    EXPECT_EQ(converted(required), (tool_error{1, required.what()}));
}

// Its text cannot be had.
struct silent : std::exception {
    char const * what() const noexcept override { return nullptr; }
};

TEST(ExceptionErrors, WhatHasNoTextIsUnknownToo) {
    EXPECT_EQ(converted(5), (tool_error{1, "unknown failure"}));
    EXPECT_EQ(converted(silent()), (tool_error{1, "unknown failure"}));
}

} // namespace
