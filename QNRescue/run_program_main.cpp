#include "QNRescue/run_program_main.hpp"

#include "QNRescue/MobileDeviceDebug.hpp"
#include "QNRescue/RestorableDeviceHandler.hpp"
#include "QNRescue/error_domain.hpp"
#include "QNRescue/exception_errors.hpp"
#include "QNRescue/restore_options_file.hpp"

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace qnrescue {

namespace {

using options_table = boost::program_options::options_description;

QN::ecid parse_ecid(std::string const & text) {
    try {
        return QN::ecid(text);
    } catch (std::invalid_argument const &) {
        throw_error(Error::invalid_argument, "Invalid ecid");
    }
}

// --- What each command needs beside its name

void nothing_to_prepare(device_notifier_state &, start_options const &) {}

void prepare_restore(device_notifier_state & notifier, start_options const & options) {
    auto const bundle = QN::path_from_utf8(options.restore.value_or(""));
    if (bundle.empty()) {
        throw_error(Error::bad_command, "Missing restore IPSW path");
    }
    notifier.CreateDefaultRestoreOptions(bundle, options.erase);
}

void prepare_restore_plist(device_notifier_state & notifier, start_options const & options) {
    notifier.restoreOptions =
        read_restore_options(QN::path_from_utf8(options.restore_plist.value_or("")));
}

using options_ref = start_options const &;

struct command {
    std::string_view name;
    bool (*requested)(options_ref options);
    bool takes_ecid; // required if so, refused if not
    command_kind kind;
    void (*prepare)(device_notifier_state & notifier, options_ref options);
};

// The first command that is requested is carried out.
constexpr std::array<command, 6> commands{{
    {"list-devices", [](options_ref options) { return options.list_devices; }, false,
     command_kind::list_devices, nothing_to_prepare},
    {"device-info", [](options_ref options) { return options.device_info; }, true,
     command_kind::device_info, nothing_to_prepare},
    {"exit-recovery", [](options_ref options) { return options.exit_recovery; }, true,
     command_kind::exit_recovery, nothing_to_prepare},
    {"no-exit-recovery", [](options_ref options) { return options.no_exit_recovery; }, true,
     command_kind::no_exit_recovery, nothing_to_prepare},
    {"restore", [](options_ref options) { return options.restore.has_value(); }, true,
     command_kind::restore, prepare_restore},
    {"restore-plist", [](options_ref options) { return options.restore_plist.has_value(); }, true,
     command_kind::restore, prepare_restore_plist},
}};

command const & requested_command(start_options const & options) {
    for (auto const & candidate : commands) {
        if (candidate.requested(options)) {
            return candidate;
        }
    }
    throw_error(Error::bad_command, "Invalid command option");
}

void require_restore(std::string_view option, start_options const & options) {
    if (!options.restore) {
        throw_error(Error::bad_command, "Option --{} only compatible with --{}", option, "restore");
    }
}

void configure(device_notifier_state & notifier, start_options const & options) {
    if (options.detect_timeout) {
        notifier.detectTimeout = std::chrono::seconds(*options.detect_timeout);
    }
    if (options.ecid) {
        notifier.ecid = parse_ecid(*options.ecid);
    }
    if (options.erase) {
        require_restore("erase", options);
    }
    if (options.restore_timeout) {
        require_restore("restore-timeout", options);
        notifier.restoreTimeout = std::chrono::seconds(*options.restore_timeout);
    }

    auto const & command = requested_command(options);
    if (command.takes_ecid && !notifier.ecid) {
        throw_error(Error::bad_command, "Option --{} requires --{}", command.name, "ecid");
    }
    if (!command.takes_ecid && notifier.ecid) {
        throw_error(Error::bad_command, "Option --{} not compatible with --{}", command.name,
                    "ecid");
    }
    notifier.operation = command.kind;
    notifier.operationName = command.name;
    command.prepare(notifier, options);
    if (command.kind == command_kind::restore && options.enter_restore_mode) {
        notifier.operation = command_kind::enter_restore_mode;
    }
}

void run_command(start_options const & options, std::shared_ptr<output_str_state> const & output,
                 wait_clock & clock) {
    std::optional<QN::filesystem::path> amr_log_file;
    if (options.amr_logfile) {
        amr_log_file = QN::path_from_utf8(*options.amr_logfile);
    }
    auto const notifier = std::make_shared<device_notifier_state>(output, std::move(amr_log_file),
                                                                  std::nullopt, clock);
    configure(*notifier, options);
    notifier->waitForCompletion();
}

void run(start_options const & options, options_table const & description,
         std::shared_ptr<output_str_state> const & output, wait_clock & clock) {
    if (options.debug) {
        output->set_debug(true);
    }
    if (options.help) {
        std::ostringstream text;
        text << description;
        output->set_debug(true);
        output->print_debug(text.str());
    } else if (options.debug_dump) {
        output->set_debug(true);
        print_imp_AMRLocalizedCopyStringForAMROperation(output);
        print_imp_AMRLocalizedCopyStringForAMRError(output);
    } else {
        run_command(options, output, clock);
    }
}

} // namespace

int runProgramMain(start_options const & options, options_table const & description,
                   std::shared_ptr<output_str_state> output, wait_clock & clock) {
    error_owner error;
    try {
        run(options, description, output, clock);
        return 0;
    } catch (error_owner & thrown) {
        error = std::move(thrown);
    } catch (...) {
        error = domain_error_of_current_exception();
    }
    try {
        output->print_formatted_error(error.get());
    } catch (...) {
        // Out of memory, most likely: the status has to say it alone.
    }
    return GetCode(error.get());
}

} // namespace qnrescue
