#pragma once

namespace qnrescue {

// Prepares a run: its standard streams; its standard handles, which no process started later
// inherits; and abort(), which ends the process with status 3, without a report or a message box.
void prepare_process();

// Makes standard output and standard error write bytes unchanged, line feeds included, and only
// when they are flushed.
void prepare_standard_streams();

// Blocks the calling thread until the process ends.
[[noreturn]] void wait_for_process_end();

} // namespace qnrescue
