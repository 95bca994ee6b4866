#include "simulator/CoreFoundation/booleans.hpp"

#include "simulator/CoreFoundation/descriptions.hpp"
#include "simulator/CoreFoundation/numbers.hpp"

namespace cf {

namespace {

constinit __CFBoolean the_true{true};
constinit __CFBoolean the_false{false};
constinit __CFNull the_null;

// A boolean hashes like the number of its value, though it equals no number.
CFHashCode hash_boolean(object const & object) {
    return hash_of_integer(static_cast<__CFBoolean const &>(object).value ? 1 : 0);
}

void describe_boolean(object const & object, std::u16string & text) {
    append_heading(text, object, "CFBoolean");
    append_ascii(text, static_cast<__CFBoolean const &>(object).value ? "{value = true}"
                                                                      : "{value = false}");
}

void describe_null(object const & object, std::u16string & text) {
    append_heading(text, object, "CFNull");
}

} // namespace

} // namespace cf

constinit cf::object_type const __CFBoolean::class_type{
    .id = 21,
    .name = "CFBoolean",
    .destroy = nullptr, // booleans are immortal
    .equal = nullptr,
    .hash = cf::hash_boolean,
    .describe = cf::describe_boolean,
};

constinit cf::object_type const __CFNull::class_type{
    .id = 16,
    .name = "CFNull",
    .destroy = nullptr, // the null object is immortal
    .equal = nullptr,
    .hash = nullptr,
    .describe = cf::describe_null,
};

constinit CFBooleanRef const kCFBooleanTrue = &cf::the_true;
constinit CFBooleanRef const kCFBooleanFalse = &cf::the_false;
constinit CFNullRef const kCFNull = &cf::the_null;

CFTypeID CFBooleanGetTypeID() {
    return __CFBoolean::class_type.id;
}

// Anything that is not the true object is false, null and objects of other types too.
Boolean CFBooleanGetValue(CFBooleanRef boolean) {
    return boolean == kCFBooleanTrue;
}

CFTypeID CFNullGetTypeID() {
    return __CFNull::class_type.id;
}
