#include "doctor/tool_finding.hpp"

#include <fmt/format.h>

namespace doctor {

namespace {

bool lists_a_device(std::string const & output) {
    constexpr auto before_first_value = "<key>Value</key>\n\t<array>\n";
    return output.find(before_first_value) != std::string::npos;
}

constexpr unsigned long first_of_a_crash = 0x80000000;

} // namespace

bool has_broken_down(tool_run const & run) {
    bool const has_document = run.output.find("</plist>") != std::string::npos;
    return run.has_started &&
           (!run.fault.empty() || run.status >= first_of_a_crash || !has_document);
}

finding tool_finding(tool_run const & run) {
    constexpr auto command = "qnrescue.exe --list-devices";
    if (!run.has_started) {
        return {id::device_list, verdict::problem,
                fmt::format("{} did not run: {}", command, run.fault),
                "Unpack all of the package again."};
    }
    if (has_broken_down(run)) {
        return {
            id::device_list, verdict::problem,
            fmt::format("{} {} and printed:\n{}", command,
                        run.fault.empty() ? fmt::format("broke off with status {:#x}", run.status)
                                          : run.fault,
                        run.output),
            "Libraries of several versions mixed, or damaged ones, may do this: install \"Apple "
            "Mobile Device Support\" again, and remove copies from the program's folder."};
    }
    auto const text =
        fmt::format("{} ended with status {} and printed:\n{}", command, run.status, run.output);
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
