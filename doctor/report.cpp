#include "doctor/report.hpp"

#include "launcher/printable_text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace doctor {

namespace {

constexpr std::string_view indent = "         ";

std::string_view name_of(verdict word) {
    switch (word) {
    case verdict::ok:
        return "ok";
    case verdict::warning:
        return "warning";
    case verdict::problem:
        break;
    }
    return "problem";
}

std::string address_of(finding const & each) {
    return fmt::format("docs/troubleshooting.md#{}", each.id);
}

// Returns the text with each of its lines but the first indented, without empty lines at its end.
std::string indented(std::string_view text) {
    std::string result;
    for (char const character : text.substr(0, text.find_last_not_of('\n') + 1)) {
        result += character;
        if (character == '\n') {
            result += indent;
        }
    }
    return result;
}

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (char const character : launcher::printable(text)) {
        switch (character) {
        case '"':
        case '\\':
            result += '\\';
            result += character;
            break;
        case '\n':
            result += "\\n";
            break;
        case '\t':
            result += "\\t";
            break;
        default: // printable leaves no other control character
            result += character;
        }
    }
    return result + '"';
}

std::string json_of(finding const & each) {
    return fmt::format("    {{\n"
                       "      \"id\": {},\n"
                       "      \"word\": {},\n"
                       "      \"text\": {},\n"
                       "      \"what_to_do\": {},\n"
                       "      \"see\": {}\n"
                       "    }}",
                       quoted(each.id), quoted(name_of(each.word)), quoted(each.text),
                       quoted(each.what_to_do), quoted(address_of(each)));
}

} // namespace

bool restore_could_start(std::span<finding const> findings) {
    return std::ranges::find(findings, verdict::problem, &finding::word) == findings.end();
}

int exit_status(std::span<finding const> findings) {
    return restore_could_start(findings) ? 0 : 1;
}

std::string text_of(finding const & each) {
    auto text = fmt::format("{:<{}}{}\n", name_of(each.word), indent.size(), indented(each.text));
    if (!each.what_to_do.empty()) {
        text += fmt::format("{}{}\n", indent, indented(each.what_to_do));
    }
    return launcher::printable(text + fmt::format("{}See {}\n", indent, address_of(each)));
}

std::string summary_of(std::span<finding const> findings) {
    return fmt::format("\nA restore {} start: problems: {}, warnings: {}.\n",
                       restore_could_start(findings) ? "could" : "cannot",
                       std::ranges::count(findings, verdict::problem, &finding::word),
                       std::ranges::count(findings, verdict::warning, &finding::word));
}

std::string json_of(std::span<finding const> findings) {
    std::string list;
    for (auto const & each : findings) {
        list += (list.empty() ? "" : ",\n") + json_of(each);
    }
    return fmt::format("{{\n"
                       "  \"version\": {},\n"
                       "  \"restore_could_start\": {},\n"
                       "  \"findings\": [\n{}\n  ]\n"
                       "}}\n",
                       quoted(QNRESCUE_VERSION), restore_could_start(findings), list);
}

} // namespace doctor
