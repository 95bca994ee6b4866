#include "launcher/internal_error_document.hpp"

#include "QNRescue/error_domain.hpp"
#include "tests/unit/helpers/output_capture.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string document_of_the_tool(std::string const & reason) {
    tests::output_capture capture;
    auto const error = qnrescue::CreateDomainError(qnrescue::Error::unknown, reason);
    capture.state()->print_formatted_error(error.get());
    return capture.out();
}

TEST(internal_error_document, is_that_of_the_tool) {
    std::string characters = "\t\n";
    for (char character = ' '; character < 127; ++character) {
        characters += character;
    }
    for (auto const & reason : {std::string(), std::string("a plain reason"), characters,
                                std::string("two\n  lines\n"), std::string("<a & b> ]]> \"'"),
                                std::string("C:\\Gerät\\日本\\😀"), std::string(1000, '&')}) {
        auto const document = document_of_the_tool(reason);
        EXPECT_EQ(1U, tests::parse_documents(document).size());
        EXPECT_EQ(document, launcher::internal_error_document(reason));
    }
}

TEST(internal_error_document, is_well_formed_whatever_the_reason) {
    std::string reason;
    for (int byte = 0; byte < 256; ++byte) {
        reason += static_cast<char>(byte);
    }
    auto const document = launcher::internal_error_document("a\x01 \uFFFE z" + reason);
    EXPECT_NE(document.npos, document.find("<string>a\uFFFD \uFFFD z\uFFFD"));
    EXPECT_EQ(document.npos, document.find_first_of(reason.substr(0, 9)));
}

} // namespace
