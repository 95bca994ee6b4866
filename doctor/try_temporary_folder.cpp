#include "doctor/try_temporary_folder.hpp"

#include "doctor/temporary_file_name.hpp"
#include "support/filesystem.hpp"

#include <boost/filesystem/operations.hpp>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace doctor {

namespace {

// Returns why no file can be created and written, and removed again; empty if that worked.
std::string try_file(QN::filesystem::path const & path) {
#ifdef _WIN32
    auto * const file = _wfopen(path.c_str(), L"wbx");
#else
    auto * const file = std::fopen(path.c_str(), "wbx");
#endif
    if (file == nullptr) {
        return std::generic_category().message(errno);
    }
    bool const is_written = std::fputs("written", file) >= 0 && std::fflush(file) == 0;
    bool const is_closed = std::fclose(file) == 0;
    boost::system::error_code error;
    if (!QN::filesystem::remove(path, error)) {
        return error.message();
    }
    return is_written && is_closed ? "" : "it is full";
}

} // namespace

temporary_folder try_temporary_folder() {
    boost::system::error_code error;
    auto const folder = QN::filesystem::temp_directory_path(error);
    if (error) {
        return {QN::path_to_utf8(folder), error.message()};
    }
    return {QN::path_to_utf8(folder), try_file(folder / temporary_file_name())};
}

} // namespace doctor
