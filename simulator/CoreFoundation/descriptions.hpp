// The texts that describe objects to a programmer.
#pragma once

#include "simulator/CoreFoundation/strings.hpp"

namespace cf {

// Appends `0x` and the address in hexadecimal digits.
void append_address(std::u16string & text, void const * address);

// Appends `<name address [address of the allocator]>`.
void append_heading(std::u16string & text, object const & object, std::string_view name);

// Appends what CFCopyDescription returns.
void append_description(std::u16string & text, object const & object);

// Appends the object as a message shows it: a string, a number, a boolean or the null object as its
// plain text, others as their description.
void append_display(std::u16string & text, object const & object);

} // namespace cf
