#include "doctor/try_temporary_folder.hpp"

#include "doctor/temporary_file_name.hpp"
#include "support/filesystem.hpp"

#include <boost/filesystem/operations.hpp>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace doctor {

namespace {

// Returns why no file can be created; empty if it was.
std::string create_file(QN::filesystem::path const & path) {
#ifdef _WIN32
    auto * const file = _wfopen(path.c_str(), L"wbx");
#else
    auto * const file = std::fopen(path.c_str(), "wbx");
#endif
    if (file == nullptr) {
        return std::generic_category().message(errno);
    }
    bool const is_written = std::fputs("written", file) >= 0 && std::fflush(file) == 0;
    return std::fclose(file) == 0 && is_written ? "" : "it is full";
}

} // namespace

temporary_folder try_temporary_folder() {
    boost::system::error_code error;
    auto const folder = QN::filesystem::temp_directory_path(error);
    if (error) {
        return {QN::path_to_utf8(folder), error.message()};
    }
    auto const file = folder / temporary_file_name();
    auto fault = create_file(file);
    if (fault.empty() && !QN::filesystem::remove(file, error)) {
        fault = error.message();
    }
    return {QN::path_to_utf8(folder), fault};
}

} // namespace doctor
