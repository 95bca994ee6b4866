#include "simulator/MobileDevice/files.hpp"

#include <cstdlib>
#include <limits>
#include <system_error>

#if defined(_WIN32)
#include <windows.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace mobile_device {
namespace {

std::FILE * open_stream(std::filesystem::path const & path, bool writing) {
#if defined(_WIN32)
    return _wfopen(path.c_str(), writing ? L"wb" : L"rb");
#else
    return std::fopen(path.c_str(), writing ? "wb" : "rb");
#endif
}

bool seek(std::FILE * file, std::uint64_t offset) {
    if (offset > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return false;
    }
#if defined(_WIN32)
    return _fseeki64(file, static_cast<std::int64_t>(offset), SEEK_SET) == 0;
#else
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0;
#endif
}

} // namespace

#if defined(_WIN32)

namespace {

std::string narrow(std::wstring const & text) {
    auto const length = static_cast<int>(text.size());
    auto const size =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), size, nullptr, nullptr);
    return result;
}

} // namespace

std::optional<std::string> environment_variable(char const * name) {
    std::wstring const wide_name{name, name + std::char_traits<char>::length(name)};
    auto const size = GetEnvironmentVariableW(wide_name.c_str(), nullptr, 0);
    if (size <= 1) {
        return std::nullopt;
    }
    std::wstring value(size, L'\0');
    value.resize(GetEnvironmentVariableW(wide_name.c_str(), value.data(), size));
    return narrow(value);
}

std::unique_ptr<append_file> append_file::open(std::string const & path) {
    auto const handle = CreateFileW(make_path(path).c_str(), FILE_APPEND_DATA,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    return std::unique_ptr<append_file>{handle == INVALID_HANDLE_VALUE ? nullptr
                                                                       : new append_file{handle}};
}

void append_file::write_line(std::string_view line) {
    auto const text = std::string{line} + '\n';
    DWORD written = 0;
    WriteFile(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

append_file::~append_file() {
    CloseHandle(handle);
}

#else

std::optional<std::string> environment_variable(char const * name) {
    auto const value = std::getenv(name);
    return value && *value ? std::optional<std::string>{value} : std::nullopt;
}

std::unique_ptr<append_file> append_file::open(std::string const & path) {
    auto const handle = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    return std::unique_ptr<append_file>{handle < 0 ? nullptr : new append_file{handle}};
}

void append_file::write_line(std::string_view line) {
    auto const text = std::string{line} + '\n';
    [[maybe_unused]] auto const written = ::write(handle, text.data(), text.size());
}

append_file::~append_file() {
    ::close(handle);
}

#endif

std::filesystem::path make_path(std::string_view utf8) {
    if (utf8.find('\0') != std::string_view::npos) {
        return {};
    }
    try {
        return std::u8string{utf8.begin(), utf8.end()};
    } catch (std::system_error const &) { // where the native encoding is another one
        return {};
    }
}

std::optional<std::vector<std::uint8_t>> read_file(std::string const & path) {
    input_file file{make_path(path)};
    if (!file) {
        return std::nullopt;
    }
    return file.read(0, static_cast<std::size_t>(file.size()));
}

bool write_file(std::string const & path, std::span<std::uint8_t const> bytes) {
    auto const file = open_stream(make_path(path), true);
    if (!file) {
        return false;
    }
    // Wine's fclose succeeds where what it writes then does not fit on the disk.
    bool const written =
        std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() && std::fflush(file) == 0;
    return std::fclose(file) == 0 && written;
}

void remove_file(std::string const & path) {
    std::error_code ignored;
    std::filesystem::remove(make_path(path), ignored);
}

input_file::input_file(std::filesystem::path const & path) {
    std::error_code error;
    length = std::filesystem::file_size(path, error); // an error for a folder
    if (!error) {
        stream.reset(open_stream(path, false));
    }
}

std::optional<std::vector<std::uint8_t>> input_file::read(std::uint64_t offset, std::size_t count) {
    if (offset > length || count > length - offset || !seek(stream.get(), offset)) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> result(count);
    if (std::fread(result.data(), 1, count, stream.get()) != count) {
        return std::nullopt;
    }
    return result;
}

} // namespace mobile_device
