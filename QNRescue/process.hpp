#pragma once

namespace qnrescue {

// Prepares the process: sets up its standard streams, keeps later processes from inheriting its
// standard handles, and makes abort() end it with status 3, without a report or a message box.
void prepare_process();

// Makes standard output and standard error write bytes unchanged, line feeds included, and only
// when they are flushed.
void prepare_standard_streams();

// Blocks the calling thread until the process ends.
[[noreturn]] void wait_for_process_end();

} // namespace qnrescue
