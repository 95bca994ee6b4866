#include "simulator/CoreFoundation/property_list/uid.hpp"

#include "simulator/CoreFoundation/descriptions.hpp"
#include "simulator/CoreFoundation/strings.hpp"

#include <fmt/format.h>

namespace cf {

namespace {

UInt32 value_of(Object const & object) {
    return static_cast<KeyedArchiverUid const &>(object).value;
}

bool equal_uids(Object const & left, Object const & right) {
    return value_of(left) == value_of(right);
}

CFHashCode hash_uid(Object const & object) {
    return value_of(object);
}

void describe_uid(Object const & object, std::u16string & text) {
    append_heading(text, object, "CFKeyedArchiverUID");
    append_ascii(text, fmt::format("{{value = {}}}", value_of(object)));
}

} // namespace

constinit Type const KeyedArchiverUid::class_type{
    .id = 41,
    .name = "CFKeyedArchiverUID",
    .destroy = destroy<KeyedArchiverUid>,
    .equal = equal_uids,
    .hash = hash_uid,
    .describe = describe_uid,
};

} // namespace cf
