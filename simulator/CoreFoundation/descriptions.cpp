#include "simulator/CoreFoundation/descriptions.hpp"

#include "simulator/CoreFoundation/allocators.hpp"
#include "simulator/CoreFoundation/booleans.hpp"
#include "simulator/CoreFoundation/numbers.hpp"

#include <fmt/format.h>

namespace cf {

void append_address(std::u16string & text, void const * address) {
    append_ascii(text, fmt::format("{:#x}", reinterpret_cast<std::uintptr_t>(address)));
}

void append_heading(std::u16string & text, object const & object, std::string_view name) {
    append_ascii(text, "<");
    append_ascii(text, name);
    append_ascii(text, " ");
    append_address(text, &object);
    append_ascii(text, " [");
    append_address(text, &system_allocator);
    append_ascii(text, "]>");
}

void append_description(std::u16string & text, object const & object) {
    object.type->describe(object, text);
}

void append_display(std::u16string & text, object const & object) {
    if (is<__CFString>(&object)) {
        append(text, static_cast<CFStringRef>(&object));
    } else if (is<__CFNumber>(&object)) {
        append_ascii(text, decimal_text(static_cast<__CFNumber const &>(object)));
    } else if (is<__CFBoolean>(&object)) {
        append_ascii(text, static_cast<__CFBoolean const &>(object).value ? "true" : "false");
    } else if (is<__CFNull>(&object)) {
        append_ascii(text, "null");
    } else {
        append_description(text, object);
    }
}

} // namespace cf

CFStringRef CFCopyDescription(CFTypeRef object) {
    if (object == nullptr) {
        return nullptr;
    }
    std::u16string text;
    cf::append_description(text, cf::object_of(object));
    return cf::create_string(text);
}
