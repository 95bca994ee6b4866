#pragma once

#include <boost/filesystem/path.hpp>

#include <string>
#include <string_view>

namespace QN {

namespace filesystem = boost::filesystem;

// Paths and UTF-8 text, whatever code page the process runs with. What is not valid in one form is
// U+FFFD in the other, so that the name of one file does not turn into that of another.
filesystem::path path_from_utf8(std::string_view text);
std::string path_to_utf8(filesystem::path const & path);

} // namespace QN
