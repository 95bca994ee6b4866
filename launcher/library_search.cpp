#include "launcher/library_search.hpp"

#include <boost/filesystem/operations.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace launcher {

namespace {

finding look_in(place const & where, std::string const & file_name) {
    if (where.folder.empty()) {
        return finding::nothing;
    }
    boost::system::error_code error;
    if (is_regular_file(where.folder / file_name, error)) {
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

bool search_result::refused() const {
    return std::ranges::find(places, finding::refusal, &searched_place::found) != places.end();
}

QN::filesystem::path search_result::folder() const {
    auto const first = std::ranges::find(places, finding::library, &searched_place::found);
    return first == places.end() ? QN::filesystem::path() : first->where.folder;
}

std::string search_result::report(std::string const & fault) const {
    auto text = fmt::format("{}\nLooked for {} in:\n", fault, file_name);
    for (auto const & [where, has] : places) {
        text += fmt::format("  {}: {}{}\n", where.origin,
                            where.fault.empty() ? QN::path_to_utf8(where.folder) : where.fault,
                            mark(has));
    }
    return text;
}

search_result search_library(std::string file_name, std::vector<place_source> const & sources,
                             search_extent extent) {
    search_result result{std::move(file_name), {}};
    for (auto const & source : sources) {
        for (auto & where : source()) {
            auto const found = look_in(where, result.file_name);
            result.places.push_back({std::move(where), found});
            if (found == finding::library && extent == search_extent::until_found) {
                return result;
            }
        }
    }
    return result;
}

} // namespace launcher
