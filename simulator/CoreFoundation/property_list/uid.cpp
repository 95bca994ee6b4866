#include "simulator/CoreFoundation/property_list/uid.hpp"

#include "simulator/CoreFoundation/descriptions.hpp"
#include "simulator/CoreFoundation/strings.hpp"

#include <fmt/format.h>

namespace cf {

namespace {

UInt32 value_of(object const & object) {
    return static_cast<keyed_archiver_uid const &>(object).value;
}

bool equal_uids(object const & left, object const & right) {
    return value_of(left) == value_of(right);
}

CFHashCode hash_uid(object const & object) {
    return value_of(object);
}

void describe_uid(object const & object, std::u16string & text) {
    append_heading(text, object, "CFKeyedArchiverUID");
    append_ascii(text, fmt::format("{{value = {}}}", value_of(object)));
}

} // namespace

constinit object_type const keyed_archiver_uid::class_type{
    .id = 41,
    .name = "CFKeyedArchiverUID",
    .destroy = destroy<keyed_archiver_uid>,
    .equal = equal_uids,
    .hash = hash_uid,
    .describe = describe_uid,
};

} // namespace cf
