// How reading and writing property lists fails.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

#include <optional>

namespace cf {

// Thrown by the readers: what is wrong with the document. UTF-8, or Latin-1 where it quotes bytes
// that are not.
struct property_list_syntax_error {
    std::string text;
};

// A new error of the Cocoa domain with a debugging text, owned by the caller. `old_style` is what
// the old-style parser said, if it was asked too.
CFErrorRef create_property_list_error(CFIndex code, std::string const & text,
                                      std::optional<std::string> const & old_style = {});

} // namespace cf
