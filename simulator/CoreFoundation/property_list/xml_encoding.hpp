// Finds the encoding of a document.
#pragma once

#include "platform/CoreFoundation.h"

#include <string>
#include <string_view>

namespace cf {

struct document_encoding {
    CFStringEncoding encoding;
    std::size_t skipped; // bytes before the text
    bool external;       // whether the text begins with another byte-order mark
};

// Decides by the byte-order mark, else by zero bytes, else by the XML declaration, else for UTF-8.
// Throws property_list_syntax_error if the declaration names an unknown encoding or is too short.
document_encoding find_encoding(std::string_view document);

} // namespace cf
