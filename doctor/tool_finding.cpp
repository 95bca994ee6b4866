#include "doctor/tool_finding.hpp"

#include <fmt/format.h>

namespace doctor {

namespace {

bool lists_a_device(std::string const & output) {
    constexpr auto before_first_value = "<key>Value</key>\n\t<array>\n";
    return output.find(before_first_value) != std::string::npos;
}

} // namespace

finding tool_finding(tool_run const & run) {
    constexpr auto command = "qnrescue.exe --list-devices";
    if (!run.fault.empty()) {
        return {id::device_list, verdict::problem,
                fmt::format("{} did not run: {}\n{}", command, run.fault, run.output),
                "Unpack all of the package again."};
    }
    auto const text =
        fmt::format("{} ended with status {} and printed:\n{}", command, run.status, run.output);
    constexpr unsigned long first_of_a_crash = 0x80000000;
    if (run.status >= first_of_a_crash) {
        return {id::device_list, verdict::problem,
                fmt::format("{} crashed with status {:#010x} and printed:\n{}", command, run.status,
                            run.output),
                "Libraries of several versions mixed, or damaged ones, may crash: install \"Apple "
                "Mobile Device Support\" again, and remove copies from the program's folder."};
    }
    if (run.status != 0) {
        return {id::device_list, verdict::problem, text,
                "Look up the error in docs/exit-codes.md."};
    }
    if (!lists_a_device(run.output)) {
        return {id::device_list, verdict::warning, text,
                "Attach a device in DFU or Recovery mode."};
    }
    return {id::device_list, verdict::ok, text};
}

} // namespace doctor
