#pragma once

#include <windows.h>

#include <filesystem>

// Another process that has a file open, from construction to destruction.
class other_process {
public:
    enum class hold {
        reading,     // for reading, sharing all
        writing,     // for reading and writing, sharing all
        exclusively, // for reading, sharing nothing
        locked,      // for reading, sharing all, with all bytes locked
    };

    other_process(hold how, std::filesystem::path const & path);
    ~other_process();

    other_process(other_process const &) = delete;
    other_process & operator=(other_process const &) = delete;

private:
    HANDLE done;
    HANDLE process = nullptr;
};
