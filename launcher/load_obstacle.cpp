#include "launcher/load_obstacle.hpp"

#include "launcher/library_image.hpp"

#include <boost/filesystem/operations.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

namespace launcher {

namespace {

std::string quoted(QN::filesystem::path const & path) {
    return '"' + QN::path_to_utf8(path) + '"';
}

// Names that lead to libraries of Windows, but not to files.
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

std::string missing_function(library_image const & image, imported_library const & wanted) {
    for (auto const & function : wanted.functions) {
        if (std::ranges::find(image.exports, function) == image.exports.end()) {
            return function;
        }
    }
    return {};
}

// The libraries that one needs, one after the other.
class dependency_walk {
public:
    explicit dependency_walk(dependency_search const & where)
        : search(where) {}

    // The first obstacle in this library, which `needed` says who needs, or in those that it needs.
    std::string visit(QN::filesystem::path const & library, imported_library const & wanted,
                      std::string const & needed) {
        if (!is_file(library)) {
            return fmt::format("{}{} is missing", quoted(library), needed);
        }
        auto const image = read_library_image(library);
        if (!image) {
            return fmt::format("{}{} is no library, or damaged", quoted(library), needed);
        }
        if (auto const fault = fault_of_machine(*image); !fault.empty()) {
            return fmt::format("{}{} {}", quoted(library), needed, fault);
        }
        if (auto const name = missing_function(*image, wanted); !name.empty()) {
            return fmt::format("{}{} lacks {}", quoted(library), needed, name);
        }
        return visited.insert(library).second ? visit_imports(library, *image) : std::string();
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
        if (is_api_set(wanted.name) || search.is_loaded(wanted.name)) {
            return {};
        }
        auto const name = QN::path_from_utf8(wanted.name);
        auto const needed = fmt::format(", which {} needs,", quoted(library));
        for (auto const & folder : search.folders) {
            if (is_file(folder / name)) {
                return visit(folder / name, wanted, needed);
            }
        }
        return is_file(search.system_folder / name)
                   ? std::string()
                   : fmt::format("{}{} is missing", quoted(name), needed);
    }

    dependency_search const & search;
    std::set<QN::filesystem::path> visited;
};

} // namespace

std::string load_obstacle(QN::filesystem::path const & library, dependency_search const & search) {
    return dependency_walk(search).visit(library, {}, {});
}

} // namespace launcher
