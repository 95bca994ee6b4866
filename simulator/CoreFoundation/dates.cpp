#include "simulator/CoreFoundation/dates.hpp"

#include "simulator/CoreFoundation/descriptions.hpp"

#include <fmt/format.h>

namespace cf {

namespace {

bool equal_dates(object const & left, object const & right) {
    return static_cast<__CFDate const &>(left).time == static_cast<__CFDate const &>(right).time;
}

CFHashCode hash_date(object const & object) {
    return std::hash<double>{}(static_cast<__CFDate const &>(object).time);
}

void describe_date(object const & object, std::u16string & text) {
    append_heading(text, object, "CFDate");
    append_ascii(text,
                 fmt::format("{{time = {:.9g}}}", static_cast<__CFDate const &>(object).time));
}

} // namespace

} // namespace cf

constinit cf::object_type const __CFDate::class_type{
    .id = 42,
    .name = "CFDate",
    .destroy = cf::destroy<__CFDate>,
    .equal = cf::equal_dates,
    .hash = cf::hash_date,
    .describe = cf::describe_date,
};

CFTypeID CFDateGetTypeID() {
    return __CFDate::class_type.id;
}

CFDateRef CFDateCreate(CFAllocatorRef, CFAbsoluteTime time) {
    return cf::create<__CFDate>(time);
}

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) {
    return cf::checked<__CFDate>(date).time;
}
