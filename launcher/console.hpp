#pragma once

namespace launcher {

// Makes the console show UTF-8, as the tool writes it, if standard output or standard error is one.
// The console has its former code page back when the process exits or is interrupted, but not when
// it is aborted or ended by force, nor when the tool ends a process whose program and library have
// a C run-time library each.
void show_utf8_on_consoles();

} // namespace launcher
