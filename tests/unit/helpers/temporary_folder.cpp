#include "tests/unit/helpers/temporary_folder.hpp"

#include "tests/unit/helpers/environment.hpp"

#include <boost/filesystem/operations.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

namespace tests {

namespace {

// A stream of the standard library takes a name in any alphabet.
std::filesystem::path stream_name(QN::filesystem::path const & path) {
    return path.native();
}

// Returns a new folder, whose name has letters of several alphabets.
QN::filesystem::path make_folder() {
    auto const unique = QN::filesystem::unique_path("%%%%%%%%");
    auto const folder = QN::filesystem::temp_directory_path() /
                        QN::path_from_utf8("qnrescue Größe 試験 " + unique.string());
    QN::filesystem::create_directories(folder);
    return folder;
}

} // namespace

temporary_folder::temporary_folder()
    : location(make_folder()) {}

temporary_folder::temporary_folder(std::string shared_by)
    : variable(std::move(shared_by)) {
    if (auto const shared = environment_variable(variable); !shared.empty()) {
        location = QN::path_from_utf8(shared);
        owned = false;
        return;
    }
    location = make_folder();
    set_environment(variable, utf8(""));
}

temporary_folder::~temporary_folder() {
    if (!owned) {
        return;
    }
    if (!variable.empty()) {
        set_environment(variable, "");
    }
    boost::system::error_code ignored;
    QN::filesystem::remove_all(location, ignored);
}

QN::filesystem::path temporary_folder::operator/(std::string_view name) const {
    return name.empty() ? location : location / QN::path_from_utf8(name);
}

std::string temporary_folder::utf8(std::string_view name) const {
    return QN::path_to_utf8(*this / name);
}

std::string temporary_folder::write(std::string_view name, std::string_view bytes) const {
    write_file(*this / name, bytes);
    return utf8(name);
}

temporary_working_folder::temporary_working_folder()
    : earlier(QN::filesystem::current_path()) {
    QN::filesystem::current_path(folder.path());
}

temporary_working_folder::~temporary_working_folder() {
    boost::system::error_code ignored;
    QN::filesystem::current_path(earlier, ignored);
}

void write_file(QN::filesystem::path const & path, std::string_view bytes) {
    std::ofstream stream(stream_name(path), std::ios::binary);
    stream << bytes;
}

std::string read_file(QN::filesystem::path const & path) {
    std::ifstream stream(stream_name(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

std::vector<std::string> read_lines(QN::filesystem::path const & path) {
    std::istringstream content(read_file(path));
    std::vector<std::string> lines;
    for (std::string line; std::getline(content, line);) {
        lines.push_back(line);
    }
    return lines;
}

} // namespace tests
