// Files and environment variables, all texts in UTF-8 whatever the system's code page.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace mobile_device {

// Nothing for a variable that is unset or empty.
std::optional<std::string> environment_variable(char const * name);

// An empty path, which names no file, for a text that cannot be a path: one that holds a NUL or, on
// Windows, is not UTF-8.
std::filesystem::path make_path(std::string_view utf8);

// Nothing for a file that cannot be read.
std::optional<std::vector<std::uint8_t>> read_file(std::string const & path);

// Replaces the file's content; answers whether that worked.
bool write_file(std::string const & path, std::span<std::uint8_t const> bytes);

// Does nothing where there is no such file, or it cannot be removed.
void remove_file(std::string const & path);

// A file that grows line by line; several processes may append to the same one.
class append_file {
public:
    // Opens the file, or creates it; null if neither works.
    static std::unique_ptr<append_file> open(std::string const & path);

    // Appends the text and a line feed with one write, so that lines of several writers do not mix.
    void write_line(std::string_view line);

    append_file(append_file const &) = delete;
    append_file & operator=(append_file const &) = delete;
    ~append_file();

private:
#if defined(_WIN32)
    using native_handle = void *;
#else
    using native_handle = int;
#endif
    explicit append_file(native_handle handle)
        : m_handle{handle} {}

    native_handle m_handle;
};

// Random access to a file of any size.
class input_file {
public:
    // False afterwards where the file could not be opened.
    explicit input_file(std::filesystem::path const & path);
    explicit operator bool() const { return m_file != nullptr; }

    std::uint64_t size() const { return m_size; }
    // Nothing where the file ends before.
    std::optional<std::vector<std::uint8_t>> read(std::uint64_t offset, std::size_t length);

private:
    struct closer {
        void operator()(std::FILE * file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, closer> m_file;
    std::uint64_t m_size = 0;
};

} // namespace mobile_device
