#include "launcher/load_obstacle.hpp"

#include "launcher/library_image.hpp"

#include <boost/filesystem/operations.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

namespace launcher {

namespace {

std::string quoted(QN::filesystem::path const & path) {
    return '"' + QN::path_to_utf8(path) + '"';
}

// Names that stand for libraries of Windows, but not for files.
bool is_api_set(std::string name) {
    std::ranges::transform(name, name.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                    : character;
    });
    return name.starts_with("api-ms-") || name.starts_with("ext-ms-");
}

bool is_file(QN::filesystem::path const & path) {
    boost::system::error_code ignored;
    return is_regular_file(path, ignored);
}

std::string fault_of_machine(library_image const & image) {
    if (image.machine == machine_x64) {
        return {};
    }
    return image.machine == machine_x86
               ? "is a 32-bit library; a 64-bit one is needed"
               : fmt::format("is a library for another kind of processor ({:#06x}); one for x64 is "
                             "needed",
                             image.machine);
}

std::string fault_of(QN::filesystem::path const & library,
                     std::optional<library_image> const & image) {
    if (!is_file(library)) {
        return "is missing";
    }
    return image ? fault_of_machine(*image) : "is not a library, is damaged or cannot be read";
}

std::string missing_function(library_image const & image, imported_library const & wanted) {
    for (auto const & function : wanted.functions) {
        if (!std::ranges::binary_search(image.exports, function)) {
            return function;
        }
    }
    return {};
}

// More than an installation has. The files of a hostile one could go on for ever.
constexpr std::size_t most_libraries = 256;

// Visits the libraries that one needs, one after the other.
class dependency_walk {
public:
    explicit dependency_walk(dependency_search const & where)
        : search(where) {}

    // Returns the first obstacle in this library, or in those that it needs; `needed` says which
    // library needs this one.
    std::string visit(QN::filesystem::path const & library, imported_library const & wanted,
                      std::string const & needed) {
        auto known = visited.find(library);
        bool const is_new = known == visited.end();
        if (is_new) {
            if (visited.size() == most_libraries) {
                return {};
            }
            auto image = read_library_image(library);
            if (auto const fault = fault_of(library, image); !fault.empty()) {
                return fmt::format("{}{} {}", quoted(library), needed, fault);
            }
            // fault_of finds one where there is no image
            // NOLINTNEXTLINE(bugprone-unchecked-optional-access)
            known = visited.emplace(library, std::move(*image)).first;
        }
        if (auto const name = missing_function(known->second, wanted); !name.empty()) {
            return fmt::format("{}{} lacks {}", quoted(library), needed, name);
        }
        return is_new ? visit_imports(library, known->second) : std::string();
    }

private:
    std::string visit_imports(QN::filesystem::path const & library, library_image const & image) {
        for (auto const & wanted : image.imports) {
            auto obstacle = visit_import(library, wanted);
            if (!obstacle.empty()) {
                return obstacle;
            }
        }
        return {};
    }

    std::string visit_import(QN::filesystem::path const & library,
                             imported_library const & wanted) {
        if (is_api_set(wanted.name)) {
            return {};
        }
        auto const needed = fmt::format(", which {} needs,", quoted(library));
        if (auto const loaded = search.loaded(wanted.name); !loaded.empty()) {
            return is_in_folders(loaded) ? visit(loaded, wanted, needed) : std::string();
        }
        auto const name = QN::path_from_utf8(wanted.name);
        for (auto const & folder : search.folders) {
            if (is_file(folder / name)) {
                return visit(folder / name, wanted, needed);
            }
        }
        return is_file(search.system_folder / name)
                   ? std::string()
                   : fmt::format("{}{} is missing", quoted(name), needed);
    }

    bool is_in_folders(QN::filesystem::path const & file) const {
        return std::ranges::any_of(search.folders, [&](QN::filesystem::path const & folder) {
            boost::system::error_code ignored;
            return equivalent(folder, file.parent_path(), ignored);
        });
    }

    dependency_search const & search;
    std::map<QN::filesystem::path, library_image> visited;
};

} // namespace

std::string load_obstacle(QN::filesystem::path const & library, dependency_search const & search) {
    return dependency_walk(search).visit(library, {}, {});
}

} // namespace launcher
