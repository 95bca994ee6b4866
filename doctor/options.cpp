#include "doctor/options.hpp"

#include <fmt/format.h>

#include <stdexcept>

namespace doctor {

options parse_options(std::span<std::string const> arguments) {
    options result;
    for (auto const & each : arguments) {
        if (each == "--json") {
            result.json = true;
        } else if (each == "--help") {
            result.help = true;
        } else {
            throw std::invalid_argument(fmt::format("unknown option '{}'", each));
        }
    }
    return result;
}

std::string help_text() {
    return "Usage: qnrescue-doctor [--json] [--help]\n"
           "Reports what a restore needs and what is in its way. Changes nothing.\n"
           "  --json  reports as JSON\n"
           "  --help  shows this text\n"
           "Exit status: 0 if a restore could start, 1 if not, 2 for a wrong option.\n";
}

} // namespace doctor
