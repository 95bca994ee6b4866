#include "doctor/library_findings.hpp"

#include "launcher/installation_advice.hpp"
#include "launcher/library_image.hpp"

#include <boost/filesystem/operations.hpp>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

namespace doctor {

namespace {

using launcher::library_image;
using launcher::search_result;
using launcher::searched_place;

constexpr auto other_library_advice =
    "This file is not used, since another one comes first in the search.";

bool has_library(searched_place const & each) {
    return each.found == launcher::finding::library;
}

// Two places may name one folder, each in its own way.
bool is_same_file(QN::filesystem::path const & one, QN::filesystem::path const & other) {
    boost::system::error_code ignored;
    return equivalent(one, other, ignored);
}

bool is_used(search_result const & search, searched_place const & each) {
    return has_library(each) && is_same_file(each.where.folder, search.folder());
}

// Returns whether the file is in the list, and adds it.
bool is_known(std::vector<QN::filesystem::path> & files, QN::filesystem::path const & file) {
    auto const is_this = [&](QN::filesystem::path const & each) {
        return is_same_file(each, file);
    };
    if (std::ranges::any_of(files, is_this)) {
        return true;
    }
    files.push_back(file);
    return false;
}

std::string version_text(std::optional<library_image> const & image) {
    return image && image->version ? fmt::format("version {}", fmt::join(*image->version, "."))
                                   : "without a version";
}

std::string machine_text(std::optional<library_image> const & image) {
    if (!image) {
        return "not a library, damaged or not readable";
    }
    switch (image->machine) {
    case launcher::machine_x64:
        return "64-bit";
    case launcher::machine_x86:
        return "32-bit";
    default:
        return fmt::format("for another kind of processor ({:#06x})", image->machine);
    }
}

finding place_finding(search_result const & search, searched_place const & each,
                      std::optional<library_image> const & image) {
    auto const & where = each.where;
    auto const text =
        fmt::format("{}, {}: {}", search.file_name, where.origin,
                    where.fault.empty() ? QN::path_to_utf8(where.folder) : where.fault);
    switch (each.found) {
    case launcher::finding::library:
        return {id::library_place, verdict::ok,
                fmt::format("{}: {}, {}, {}", text, version_text(image), machine_text(image),
                            is_used(search, each) ? "used" : "not used")};
    case launcher::finding::refusal:
        return {id::library_place, verdict::warning, text + ": access denied",
                "Windows keeps libraries of its Store's apps from other programs. Another "
                "installation or a copy is needed."};
    case launcher::finding::nothing:
        break;
    }
    return {id::library_place, verdict::ok, where.fault.empty() ? text + ": not there" : text};
}

std::vector<std::string> lacking_names(library_image const & image,
                                       std::vector<std::string> const & names) {
    std::vector<std::string> lacking;
    std::ranges::copy_if(names, std::back_inserter(lacking), [&](std::string const & name) {
        return !std::ranges::binary_search(image.exports, name);
    });
    return lacking;
}

// Returns the first fault that the files show, from which others may follow, as that of the library
// that is used.
std::optional<finding> fault_of(QN::filesystem::path const & file,
                                std::optional<library_image> const & image,
                                searched_library const & library) {
    auto const fault = [](std::string_view id, std::string text) {
        return finding{id, verdict::problem, std::move(text), launcher::installation_advice};
    };
    auto const path = QN::path_to_utf8(file);
    if (!image) {
        return fault(id::library_damaged,
                     fmt::format("\"{}\" is not a library, is damaged or cannot be read", path));
    }
    if (image->machine != launcher::machine_x64) {
        return fault(id::library_processor,
                     fmt::format("\"{}\" is {}; this program needs a 64-bit library for x64", path,
                                 machine_text(image)));
    }
    if (auto const lacking = lacking_names(*image, library.names); !lacking.empty()) {
        return fault(id::library_names,
                     fmt::format("\"{}\" lacks {}", path, fmt::join(lacking, ", ")));
    }
    auto dependencies = library.dependencies;
    dependencies.folders.insert(dependencies.folders.begin(), file.parent_path());
    if (auto obstacle = launcher::load_obstacle(file, dependencies); !obstacle.empty()) {
        // Windows may find it elsewhere: loading decides.
        return finding{id::library_dependency, verdict::warning, std::move(obstacle),
                       "If library-load is a problem too, this is its cause. Install \"Apple "
                       "Mobile Device Support\" again, or copy all DLLs of the folder."};
    }
    return std::nullopt;
}

finding as_of_unused(finding fault) {
    fault.word = verdict::warning;
    fault.what_to_do = other_library_advice;
    return fault;
}

} // namespace

std::vector<finding> library_findings(searched_library const & library) {
    auto const & search = library.search;
    std::vector<finding> findings;
    std::vector<QN::filesystem::path> files;
    for (auto const & each : search.places) {
        auto const file = each.where.folder / search.file_name;
        auto const image = has_library(each) ? launcher::read_library_image(file) : std::nullopt;
        findings.push_back(place_finding(search, each, image));
        if (!has_library(each) || is_known(files, file)) {
            continue;
        }
        if (auto fault = fault_of(file, image, library)) {
            findings.push_back(is_used(search, each) ? *fault : as_of_unused(*fault));
        }
    }
    if (!search.found()) {
        findings.push_back({id::library_missing, verdict::problem,
                            search.file_name + " was not found", launcher::installation_advice});
    }
    return findings;
}

std::optional<finding> versions_finding(search_result const & library) {
    std::vector<QN::filesystem::path> files;
    std::vector<std::string> texts;
    std::vector<std::string> versions;
    for (auto const & each : library.places) {
        auto const file = each.where.folder / library.file_name;
        if (!has_library(each) || is_known(files, file)) {
            continue;
        }
        versions.push_back(version_text(launcher::read_library_image(file)));
        texts.push_back(fmt::format("\"{}\" ({})", QN::path_to_utf8(file), versions.back()));
    }
    if (files.size() < 2) {
        return std::nullopt;
    }
    auto const winner = texts.front();
    texts.erase(texts.begin());
    auto text = fmt::format("{} is used, not {}", winner, fmt::join(texts, " or "));
    bool const is_one_version = std::ranges::count(versions, versions.front()) ==
                                static_cast<std::ptrdiff_t>(versions.size());
    if (is_one_version) {
        return finding{id::library_versions, verdict::ok, std::move(text)};
    }
    return finding{id::library_versions, verdict::warning, std::move(text),
                   "Two versions mixed may crash. The version beside MobileDevice.dll is the one "
                   "that it was made with: remove old installations and copies of the other."};
}

std::optional<finding> finding_of_32_bit(QN::filesystem::path const & folder,
                                         bool is_library_found) {
    if (folder.empty()) {
        return std::nullopt;
    }
    auto text = fmt::format("The installation in \"{}\" is for 32-bit programs; this one needs "
                            "64-bit libraries",
                            QN::path_to_utf8(folder));
    if (is_library_found) {
        return finding{id::library_32_bit, verdict::ok, std::move(text)};
    }
    return finding{id::library_32_bit, verdict::warning, std::move(text),
                   launcher::installation_advice};
}

} // namespace doctor
