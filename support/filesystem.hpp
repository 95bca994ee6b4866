#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>

#include <string>
#include <string_view>

namespace QN {

namespace filesystem = boost::filesystem;

// Paths and UTF-8 text, whatever code page the process runs with. What is not valid in one form is
// U+FFFD in the other, so that the name of one file does not turn into that of another.
filesystem::path path_from_utf8(std::string_view text);
std::string path_to_utf8(filesystem::path const & path);

// Removes what is at the path, with all that is in it. No link is followed: it goes, and what it
// leads to stays. Where a link cannot be removed, nothing more is, and the error says why. Under
// Wine that is so for every link to a folder, and a link to a file is taken for the file.
void remove_tree(filesystem::path const & path, boost::system::error_code & error);

} // namespace QN
