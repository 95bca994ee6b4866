#include "QNRescue/start_options.hpp"

#include "QNRescue/error_domain.hpp"
#include "QNRescue/exception_errors.hpp"
#include "support/file/writable_file.hpp"

#include <boost/algorithm/string/replace.hpp>
#include <boost/program_options/parsers.hpp>
#include <boost/program_options/value_semantic.hpp>
#include <boost/program_options/variables_map.hpp>

#include <fmt/format.h>

#include <cstddef>
#include <span>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace qnrescue {

namespace {

namespace po = boost::program_options;

// Boost's texts of errors never end where a name or a value contains what stands for it in their
// pattern, such as "%value%", and say something else where it contains what stands for another
// part. So a byte that no text contains follows each percent sign there; the
// reasons of errors leave out what is no UTF-8.
constexpr std::string_view percent_sign = "%";
constexpr std::string_view guarded_percent_sign = "%\xff";

std::vector<std::string> guarded(std::span<char const * const> arguments) {
    std::vector<std::string> result(arguments.begin(), arguments.end());
    for (auto & argument : result) {
        boost::replace_all(argument, percent_sign, guarded_percent_sign);
    }
    return result;
}

template <typename Value>
Value as_typed(Value value) {
    if constexpr (std::is_same_v<Value, std::string>) {
        boost::replace_all(value, guarded_percent_sign, percent_sign);
    }
    return value;
}

template <typename Value>
auto * stored_in(std::optional<Value> & field) {
    return po::value<Value>()->notifier([&field](Value const & value) { field = as_typed(value); });
}

// The table refers to the fields of the options that it is filled for.
void fill_table(po::options_description & table, start_options & options) {
    // clang-format off
    table.add_options()
        ("debug", po::bool_switch(&options.debug),
            "Enable debugging output")
        ("debug-dump", po::bool_switch(&options.debug_dump),
            "Dump mobiledevice implementations (debugging)")
        ("help", po::bool_switch(&options.help),
            "Print this description")
        ("no-cleanup", po::bool_switch(&options.no_cleanup),
            "Disable auto temp file cleanup on exit")
        ("amr-logfile", stored_in(options.amr_logfile),
            "Specify logfile for AMRestore")
        ("ecid", stored_in(options.ecid),
            "Device to perform operation on")
        ("detect-timeout", stored_in(options.detect_timeout),
            "How many seconds to wait for the selected device to be detected")
        ("list-devices", po::bool_switch(&options.list_devices),
            "List all detected Apple devices")
        ("device-info", po::bool_switch(&options.device_info),
            "Output properties of specified Apple device")
        ("exit-recovery", po::bool_switch(&options.exit_recovery),
            "Attempt to reboot a recovery device into booted mode")
        ("no-exit-recovery", po::bool_switch(&options.no_exit_recovery),
            "Set a device to stay in recovery mode when it reboots")
        ("restore", stored_in(options.restore),
            "Start a device restore with specified IPSW bundle")
        ("restore-timeout", stored_in(options.restore_timeout),
            "How many seconds to wait for a restore to complete before aborting")
        ("erase", po::bool_switch(&options.erase),
            "Use with --restore to force the device to be erased during the restore")
        ("restore-plist", stored_in(options.restore_plist),
            "Start a device restore with options read from a plist file")
        ("enter-restore-mode", po::bool_switch(&options.enter_restore_mode),
            "Attempt to put a recovery mode device into restore mode")
        ("output-pipe", stored_in(options.output_pipe),
            "Send formatted output to a specific pipe");
    // clang-format on
}

// Makes the log file begin with the command that started the run. A file that exists already is
// left as it is.
void echo_command_line(std::string const & log_file, std::span<char const * const> arguments) {
    try {
        auto const line = fmt::format("{}\n", fmt::join(arguments, " "));
        boost::system::error_code error;
        auto file = QN::file::writable_file::create_new(QN::path_from_utf8(log_file), error);
        if (!error) {
            file.write(line, error);
        }
    } catch (std::exception const &) {
        // Out of memory: the run goes on without the line.
    }
}

} // namespace

std::tuple<start_options, po::options_description, error_owner>
parse_arguments(int argc, char const ** argv) {
    bool const given = argc > 0 && argv != nullptr;
    std::span<char const * const> const words(argv, given ? static_cast<std::size_t>(argc) : 0);
    start_options options;
    po::options_description table("Program options");
    error_owner error;
    try {
        fill_table(table, options);
        if (words.empty()) {
            throw std::length_error("The command line has no program name");
        }
        po::variables_map values;
        auto const arguments = guarded(words.subspan(1));
        std::vector<char const *> pointers{nullptr}; // for the program's name, which Boost skips
        for (auto const & argument : arguments) {
            pointers.push_back(argument.c_str());
        }
        po::store(po::parse_command_line(argc, pointers.data(), table), values);
        po::notify(values);
    } catch (std::length_error const & exception) {
        // In a run this is an unknown error.
        error = CreateDomainError(Error::bad_command, exception.what());
    } catch (std::exception const &) {
        error = domain_error_of_current_exception();
    }
    if (options.amr_logfile && words[0] != nullptr) {
        echo_command_line(*options.amr_logfile, words);
    }
    return {std::move(options), std::move(table), std::move(error)};
}

} // namespace qnrescue
