#include "tests/unit/QNRescue/temporary_folder.hpp"

#include <boost/filesystem/fstream.hpp>
#include <boost/filesystem/operations.hpp>

#include <iterator>

namespace tests {

temporary_folder::temporary_folder()
    : location(QN::filesystem::temp_directory_path() /
               QN::filesystem::unique_path("qnrescue-test.%%%%%%%%")) {
    QN::filesystem::create_directories(location);
}

temporary_folder::~temporary_folder() {
    boost::system::error_code ignored;
    QN::filesystem::remove_all(location, ignored);
}

void write_file(QN::filesystem::path const & path, std::string_view bytes) {
    QN::filesystem::ofstream stream(path, std::ios::binary);
    stream << bytes;
}

std::string read_file(QN::filesystem::path const & path) {
    QN::filesystem::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

} // namespace tests
