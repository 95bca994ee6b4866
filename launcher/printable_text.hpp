#pragma once

#include <string>
#include <string_view>

namespace launcher {

// Returns the text with U+FFFD in place of what XML or a console cannot hold: control characters
// but tab and line feed, U+FFFE and U+FFFF, and what is not valid UTF-8. The registry may hold any
// of it.
std::string printable(std::string_view text);

} // namespace launcher
