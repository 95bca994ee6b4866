// How reading and writing property lists fails.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"

#include <optional>

namespace cf {

// Says what is wrong with a document; thrown by the readers. The text is UTF-8, or Latin-1 where it
// quotes bytes that are not.
struct property_list_syntax_error {
    std::string text;
};

// Creates an error of the Cocoa domain with a debugging text, owned by the caller. `old_style` is
// the old-style reader's text, if it has read the document too.
CFErrorRef create_property_list_error(CFIndex code, std::string const & text,
                                      std::optional<std::string> const & old_style = {});

} // namespace cf
