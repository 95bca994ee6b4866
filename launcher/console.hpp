#pragma once

namespace launcher {

// Makes the console show UTF-8, as the tool writes it, if standard output or standard error is one.
// The console has its former code page back when the process exits or is interrupted, but not when
// it is aborted or ended by force.
void show_utf8_on_consoles();

} // namespace launcher
