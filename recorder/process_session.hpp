// The session of this process.
#pragma once

#include "recorder/session.hpp"

namespace recorder {

// Returns the session that is recorded; null if the environment names no file. The first call
// begins the file. Never destroyed, as threads may use it until the process is gone.
session * process_session();

// Ends the recording; the next call reads the environment again. For tests alone, while no other
// thread uses the session.
void end_process_session();

// Gives the sessions that begin from now on another clock. For tests alone.
void set_session_clock(clock::time_point (*time)());

} // namespace recorder
