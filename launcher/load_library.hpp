#pragma once

#include "support/filesystem.hpp"
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

// Loads the library of this full path and keeps it loaded to the end of the process: the tool's
// threads may still run in it when main returns. What it needs is taken from its own folder and
// those that the process searches, which `searched` repeats for messages; never from the current
// one. Throws load_error.
QN::win::win32_module const & load_library(QN::filesystem::path const & path,
                                           std::vector<QN::filesystem::path> const & searched);

} // namespace launcher
