#pragma once

#include <string>
#include <string_view>

namespace launcher {

// Returns the text with U+FFFD in place of what XML or a console cannot hold: control characters
// except tab and line feed, U+FFFE and U+FFFF, and what is not valid UTF-8. Texts of the registry
// may have any of these.
std::string printable(std::string_view text);

} // namespace launcher
