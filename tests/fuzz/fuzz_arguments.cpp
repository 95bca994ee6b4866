// Command lines, one argument per line: each is parsed, or refused with an error whose document
// reads back as what went into it.
#include "QNRescue/error_domain.hpp"
#include "QNRescue/qnrescue.h"
#include "QNRescue/start_options.hpp"
#include "tests/fuzz/require.hpp"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace qnrescue;

std::vector<std::string> arguments_of(std::string_view text) {
    std::vector<std::string> arguments;
    boost::split(arguments, text, boost::is_any_of(std::string_view("\n\0", 2)));
    for (auto & argument : arguments) {
        // The only option that makes files, however short it is cut.
        if (argument.starts_with("--a")) {
            argument = "--amr-logfile=/dev/null";
        }
    }
    arguments.insert(arguments.begin(), "qnrescue");
    return arguments;
}

void check_error(CFErrorRef error) {
    auto const code = GetCode(error);
    require(code >= 1 && code <= 3, "the code of a refused command line");
    auto const dictionary = DictionaryFromError(error);
    require(CFPropertyListValidateForSerialization(dictionary.get(), kCFPropertyListXMLFormat_v1_0),
            "an error can be printed");
    auto const document = adopt(CFPropertyListCreateData(
        kCFAllocatorDefault, dictionary.get(), kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    require(document != nullptr, "an error is printed");
    auto const read = adopt(
        CFPropertyListCreateWithData(kCFAllocatorDefault, document.get(), 0, nullptr, nullptr));
    require(read && CFEqual(read.get(), dictionary.get()), "an error reads back");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * bytes, std::size_t size) {
    auto const arguments = arguments_of({reinterpret_cast<char const *>(bytes), size});
    std::vector<char const *> argv;
    argv.reserve(arguments.size() + 1);
    for (auto const & argument : arguments) {
        argv.push_back(argument.c_str());
    }
    argv.push_back(nullptr);
    auto const [options, table, error] =
        parse_arguments(static_cast<int>(arguments.size()), argv.data());
    if (error) {
        check_error(error.get());
    }
    std::ostringstream help;
    help << table;
    require(help.str().find("--output-pipe") != std::string::npos, "the help is whole");
    return 0;
}
