// Files and environment variables, all texts in UTF-8 whatever the system's code page is.
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

// Returns the variable's value; nothing if it is unset or empty.
std::optional<std::string> environment_variable(char const * name);

// Returns the path; an empty one, which names no file, for a text that cannot be a path: one that
// holds a NUL or, on Windows, is not UTF-8.
std::filesystem::path make_path(std::string_view utf8);

// Returns the file's content; nothing if it cannot be read.
std::optional<std::vector<std::uint8_t>> read_file(std::string const & path);

// Replaces the file's content; returns whether that worked.
bool write_file(std::string const & path, std::span<std::uint8_t const> bytes);

// Removes the file, if it exists and can be removed.
void remove_file(std::string const & path);

// Appends lines to a file; several processes may append to the same one.
class append_file {
public:
    // Opens the file, or creates it; returns null if neither works.
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
    explicit append_file(native_handle opened)
        : handle{opened} {}

    native_handle handle;
};

// Reads any part of a file of any size.
class input_file {
public:
    // Opens the file; the object converts to false if that failed.
    explicit input_file(std::filesystem::path const & path);
    explicit operator bool() const { return stream != nullptr; }

    std::uint64_t size() const { return length; }
    // Returns the bytes; nothing if the file ends before.
    std::optional<std::vector<std::uint8_t>> read(std::uint64_t offset, std::size_t count);

private:
    struct closer {
        void operator()(std::FILE * file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, closer> stream;
    std::uint64_t length = 0;
};

} // namespace mobile_device
