#pragma once

#include <boost/filesystem/path.hpp>

#include <string>
#include <string_view>

namespace QN {

namespace filesystem = boost::filesystem;

// Convert between paths and UTF-8 text, whatever the code page of the process is. What is invalid
// in one form is U+FFFD in the other, so that one file's name does not become that of another.
filesystem::path path_from_utf8(std::string_view text);
std::string path_to_utf8(filesystem::path const & path);

} // namespace QN
