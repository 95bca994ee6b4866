// The file of a recording.
#pragma once

#include "recorder/session.hpp"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace recorder {

// Keeps the file at most a second behind the session. It is whole at every moment: it is written
// under another name and renamed.
class recording_file {
public:
    // Between two writes. With the time that a write takes, the file is at most a second old.
    static constexpr std::chrono::milliseconds usual_pause{500};

    // Writes the file for the first time, and starts the thread. The path is in UTF-8. If the file
    // cannot be written, one line on standard error says so.
    recording_file(session & source, std::string path, bool keeps_identities,
                   std::chrono::milliseconds pause = usual_pause);
    recording_file(recording_file const &) = delete;
    recording_file & operator=(recording_file const &) = delete;
    // Ends the thread. The session must not be in use any more.
    ~recording_file();

    // Writes the last state. Later changes are not written.
    void finish();

private:
    void run();
    void write();
    bool write_aside_and_rename() noexcept;

    session & from;
    std::string const path;
    bool const keeps_identities;
    std::chrono::milliseconds const pause;

    std::mutex mutex; // of the condition
    std::condition_variable woken;
    bool news = false;
    bool ending = false;

    std::mutex writing;
    bool finished = false;
    bool complained = false;

    std::thread thread; // the last member, as it uses the others
};

} // namespace recorder
