// qnrescue-doctor.exe: reports what a restore needs and what is in its way.
#include "doctor/examine_libraries.hpp"
#include "doctor/options.hpp"
#include "doctor/read_services.hpp"
#include "doctor/read_store_packages.hpp"
#include "doctor/read_system.hpp"
#include "doctor/read_usb_devices.hpp"
#include "doctor/report.hpp"
#include "doctor/run_tool.hpp"
#include "doctor/try_temporary_folder.hpp"
#include "launcher/console.hpp"
#include "launcher/printable_text.hpp"
#include "launcher/process_setup.hpp"
#include "launcher/windows_places.hpp"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace doctor;

constexpr int wrong_options = 2;

using check = std::function<std::vector<finding>()>;

// A check that fails is a finding too: the others still have something to say.
std::vector<finding> results_of(check const & examine) {
    try {
        return examine();
    } catch (std::exception const & error) {
        return {{id::check_failed, verdict::problem, error.what(),
                 "Something on this machine could not be examined."}};
    }
}

// Carries out the checks one after the other, and shows what each found before the next begins: a
// damaged library may end the process.
class examination {
public:
    explicit examination(bool json)
        : as_json(json) {}

    void add(check const & examine) {
        for (auto & each : results_of(examine)) {
            if (!as_json) {
                launcher::write_text(stdout, text_of(each));
            }
            all.push_back(std::move(each));
        }
    }

    int finish() const {
        launcher::write_text(stdout, as_json ? json_of(all) : summary_of(all));
        return exit_status(all);
    }

private:
    bool as_json;
    std::vector<finding> all;
};

void examine_system(examination & report, code_pages const & pages) {
    report.add([] { return std::vector{version_finding(read_windows_version())}; });
    report.add([&] { return std::vector{code_page_finding(pages)}; });
    report.add([] { return std::vector{temporary_folder_finding(try_temporary_folder())}; });
    report.add([] { return service_findings(read_services()); });
    report.add([] { return usb_findings(read_usb_devices()); });
}

// Runs the tool before it loads the libraries: those that end or halt a process would leave no
// report.
void use_libraries(examination & report, launcher::platform_search const & libraries,
                   launcher::place const & program) {
    auto const run = run_tool(program.folder);
    bool is_run_shown = has_broken_down(run);
    if (!is_run_shown) {
        report.add([&] {
            auto findings = load_libraries(libraries, program);
            is_run_shown = restore_could_start(findings);
            return findings;
        });
    }
    if (is_run_shown) {
        report.add([&] { return std::vector{tool_finding(run)}; });
    }
}

void examine_platform(examination & report) {
    auto const program = launcher::program_place();
    launcher::platform_search libraries;
    report.add([&] {
        libraries = launcher::find_platform_libraries(program, launcher::search_extent::everywhere);
        return examine_libraries(libraries, program);
    });
    report.add([&] {
        return store_findings(read_store_packages(find_packaging_functions()),
                              libraries.mobile_device.folder());
    });
    if (libraries.mobile_device.found() && libraries.core_foundation.found()) {
        use_libraries(report, libraries, program);
    }
}

int run(options const & chosen) {
    launcher::prepare_process();
    auto const pages = read_code_pages(); // before the console gets another
    launcher::show_utf8_on_consoles();
    examination report(chosen.json);
    examine_system(report, pages);
    examine_platform(report);
    return report.finish();
}

std::vector<std::string> arguments_of(std::span<wchar_t * const> words) {
    std::vector<std::string> arguments;
    for (auto const * const word : words) {
        arguments.push_back(QN::path_to_utf8(word));
    }
    return arguments;
}

void complain(char const * fault) {
    launcher::write_text(stderr, fmt::format("qnrescue-doctor: {}\n", launcher::printable(fault)));
}

} // namespace

extern "C" int wmain(int argc, wchar_t ** argv) {
    try {
        auto const words = std::span(argv, static_cast<std::size_t>(argc));
        auto const chosen = parse_options(arguments_of(words.subspan(argc == 0 ? 0 : 1)));
        if (chosen.help) {
            launcher::write_text(stdout, help_text());
            return EXIT_SUCCESS;
        }
        return run(chosen);
    } catch (std::invalid_argument const & error) {
        complain(error.what());
        launcher::write_text(stderr, help_text());
        return wrong_options;
    } catch (std::exception const & error) {
        complain(error.what());
        return EXIT_FAILURE;
    }
}
