#pragma once

#include <cstdio>
#include <string>

namespace launcher {

// Makes the console show UTF-8, as the tool writes it, if standard output or standard error is a
// console. Its former code page is restored when the process exits or is interrupted, but not when
// it is aborted or ended by force, nor when the tool ends a process whose program and library each
// have a C run-time library.
void show_utf8_on_consoles();

// Writes the text as it is, with line feeds alone, at once.
void write_text(std::FILE * stream, std::string const & text);

} // namespace launcher
