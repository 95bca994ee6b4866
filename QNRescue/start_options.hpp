#pragma once

#include "QNRescue/error_domain.hpp"
#include "platform/cf_ownership.hpp"

#include <boost/program_options/options_description.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

namespace qnrescue {

// The parsed command line, every value as typed: nothing is validated or looked up yet.
struct start_options {
    bool debug = false;
    bool debug_dump = false;
    bool help = false;
    bool no_cleanup = false; // accepted, but has no effect
    std::optional<std::string> amr_logfile;
    std::optional<std::uint32_t> detect_timeout; // seconds
    std::optional<std::string> ecid;
    bool list_devices = false;
    bool device_info = false;
    bool exit_recovery = false;
    bool no_exit_recovery = false;
    std::optional<std::string> restore;
    std::optional<std::uint32_t> restore_timeout; // seconds
    bool erase = false;
    std::optional<std::string> restore_plist;
    bool enter_restore_mode = false;
    std::optional<std::int32_t> output_pipe; // the number of a handle that is open in this process
};

// Returns the options as far as parsing got, the table for --help (good for printing only), and a
// tool error where the command line cannot be parsed; the caller looks at the error first. Prints
// nothing, and throws nothing for an invalid command line. With --amr-logfile, writes the command
// line as the first line of that file if it creates the file.
std::tuple<start_options, boost::program_options::options_description, error_owner>
parse_arguments(int argc, char const ** argv);

} // namespace qnrescue
