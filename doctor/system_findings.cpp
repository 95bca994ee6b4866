#include "doctor/system_findings.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace doctor {

namespace {

constexpr unsigned long oldest_major = 10;
constexpr unsigned long oldest_build = 18362; // version 1903; those of Windows 11 are higher
constexpr unsigned utf8 = 65001;
constexpr unsigned long running = 4;

std::string lower_case(std::string text) {
    std::ranges::transform(text, text.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                    : character;
    });
    return text;
}

bool attaches_devices(service const & each) {
    constexpr std::array<std::string_view, 3> parts{"apple mobile device", "applemobiledevice",
                                                    "usbmux"};
    for (auto const & name : {lower_case(each.name), lower_case(each.display_name)}) {
        if (std::ranges::any_of(parts, [&](std::string_view part) {
                return name.find(part) != std::string::npos;
            })) {
            return true;
        }
    }
    return false;
}

std::string_view state_text(unsigned long state) {
    constexpr std::array<std::string_view, 8> texts{
        "in an unknown state", "stopped",        "starting", "stopping", "running",
        "continuing",          "about to pause", "paused"};
    return texts[state < texts.size() ? state : 0];
}

finding service_finding(service const & each) {
    auto text = fmt::format("The service \"{}\" ({}) is {}", each.name, each.display_name,
                            state_text(each.state));
    if (each.state == running) {
        return {id::device_service, verdict::ok, std::move(text)};
    }
    return {id::device_service, verdict::warning, std::move(text),
            fmt::format("As an administrator, run: sc start \"{}\"", each.name)};
}

} // namespace

finding version_finding(windows_version const & version) {
    auto text = fmt::format("Windows {}.{}, build {}", version.major, version.minor, version.build);
    if (version.major < oldest_major) {
        return {id::windows_version, verdict::problem, std::move(text),
                "The tool needs 64-bit Windows 10 version 1903 (build 18362) or later."};
    }
    if (version.major == oldest_major && version.build < oldest_build) {
        return {id::windows_version, verdict::warning, std::move(text),
                "The oldest version that is supported is Windows 10 version 1903 (build 18362). "
                "Update Windows."};
    }
    return {id::windows_version, verdict::ok, std::move(text)};
}

finding code_page_finding(code_pages const & pages) {
    auto text = fmt::format(
        "The program's code page is {}, that of the console is {}", pages.process,
        pages.console == 0 ? "unknown, as there is no console" : fmt::to_string(pages.console));
    if (pages.process == utf8) {
        return {id::code_page, verdict::ok, std::move(text)};
    }
    return {id::code_page, verdict::warning, std::move(text),
            "This Windows does not make UTF-8 (65001) the program's code page. Use ASCII letters "
            "in the name of --amr-logfile."};
}

finding temporary_folder_finding(temporary_folder const & folder) {
    if (folder.fault.empty()) {
        return {id::temporary_folder, verdict::ok,
                fmt::format("The temporary folder \"{}\" can be written", folder.path)};
    }
    return {
        id::temporary_folder, verdict::problem,
        fmt::format("The temporary folder \"{}\" cannot be written: {}", folder.path, folder.fault),
        "Let the environment variable TMP name a folder in which you may create files."};
}

std::vector<finding> service_findings(std::vector<service> const & services) {
    std::vector<finding> findings;
    for (auto const & each : services) {
        if (attaches_devices(each)) {
            findings.push_back(service_finding(each));
        }
    }
    if (findings.empty()) {
        findings.push_back({id::device_service, verdict::warning,
                            "There is no service \"Apple Mobile Device Service\"",
                            "Install \"Apple Mobile Device Support\", which brings it. An app of "
                            "the Microsoft Store runs such a program only while it is open."});
    }
    return findings;
}

} // namespace doctor
