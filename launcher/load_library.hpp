#pragma once

#include "support/filesystem.hpp"
#include "support/win/win32_error.hpp"
#include "support/win/win32_module.hpp"

#include <stdexcept>
#include <string>
#include <vector>

namespace launcher {

// A library that cannot be loaded; the text says why, for people.
class load_error : public std::runtime_error {
public:
    load_error(std::string const & text, unsigned long number)
        : std::runtime_error(text)
        , code(number) {}

    unsigned long code; // a Win32 error number
};

// Returns the text of an error that is about this file: some of the system's texts have a
// placeholder for its name.
std::string text_about(QN::filesystem::path const & file, QN::win::win32_error const & error);

// Loads the library at this full path and keeps it loaded to the end of the process: the tool's
// threads may still run in it when main returns. Takes what it needs from its own folder and those
// that the process searches, never from the current folder. `searched` lists the folders that the
// process searches, for messages. Throws load_error.
QN::win::win32_module const & load_library(QN::filesystem::path const & path,
                                           std::vector<QN::filesystem::path> const & searched);

} // namespace launcher
