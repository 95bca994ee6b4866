#include "launcher/library_search.hpp"

#include <boost/filesystem/operations.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace launcher {

namespace {

finding find(QN::filesystem::path const & file) {
    boost::system::error_code error;
    if (is_regular_file(file, error)) {
        return finding::library;
    }
    return error == boost::system::errc::permission_denied ? finding::refusal : finding::nothing;
}

std::string_view mark(finding found) {
    switch (found) {
    case finding::library:
        return " (found)";
    case finding::refusal:
        return " (access denied)";
    case finding::nothing:
        break;
    }
    return "";
}

} // namespace

library_search::library_search(std::string file_name)
    : name(std::move(file_name)) {}

bool library_search::look_in(place const & candidate) {
    auto const has = candidate.folder.empty() ? finding::nothing : find(candidate.folder / name);
    looked_in.push_back({candidate, has});
    if (has != finding::library) {
        return false;
    }
    library_folder = candidate.folder;
    return true;
}

bool library_search::look_in_each(std::span<place const> candidates) {
    return std::ranges::any_of(candidates,
                               [this](place const & candidate) { return look_in(candidate); });
}

bool library_search::refused() const {
    return std::ranges::find(looked_in, finding::refusal, &looked_in_place::found) !=
           looked_in.end();
}

std::string library_search::report(std::string const & fault) const {
    auto text = fmt::format("{}\nLooked for {} in:\n", fault, name);
    for (auto const & [where, has] : looked_in) {
        text += fmt::format("  {}: {}{}\n", where.origin,
                            where.fault.empty() ? QN::path_to_utf8(where.folder) : where.fault,
                            mark(has));
    }
    return text;
}

} // namespace launcher
