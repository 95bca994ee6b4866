#pragma once

namespace qnrescue {

// Makes standard output and standard error carry bytes as they are, line feeds included, and write
// them when they are flushed, not before.
void prepare_standard_streams();

// Blocks the calling thread until the process ends.
[[noreturn]] void wait_for_process_end();

} // namespace qnrescue
