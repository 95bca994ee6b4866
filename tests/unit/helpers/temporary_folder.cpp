#include "tests/unit/helpers/temporary_folder.hpp"

#include <boost/filesystem/operations.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace tests {

namespace {

// A stream of the standard library takes a name in any alphabet.
std::filesystem::path stream_name(QN::filesystem::path const & path) {
    return path.native();
}

} // namespace

temporary_folder::temporary_folder()
    : location(QN::filesystem::temp_directory_path() /
               QN::filesystem::unique_path("qnrescue-test.%%%%%%%%")) {
    QN::filesystem::create_directories(location);
}

temporary_folder::~temporary_folder() {
    boost::system::error_code ignored;
    QN::filesystem::remove_all(location, ignored);
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

} // namespace tests
