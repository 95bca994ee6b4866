#pragma once

#include <string>
#include <string_view>

namespace launcher {

// Returns the document that the tool prints for an error with code 1 and this reason, in UTF-8 and
// with the line feed that follows it. What is not printable in the reason is replaced, so that the
// document is well-formed. For errors before there is a CoreFoundation to write it with.
std::string internal_error_document(std::string_view reason);

} // namespace launcher
