#include "simulator/CoreFoundation/types.hpp"

#include "simulator/CoreFoundation/allocators.hpp"
#include "simulator/CoreFoundation/arrays.hpp"
#include "simulator/CoreFoundation/booleans.hpp"
#include "simulator/CoreFoundation/data.hpp"
#include "simulator/CoreFoundation/dates.hpp"
#include "simulator/CoreFoundation/dictionaries.hpp"
#include "simulator/CoreFoundation/errors.hpp"
#include "simulator/CoreFoundation/numbers.hpp"
#include "simulator/CoreFoundation/property_list_uid.hpp"
#include "simulator/CoreFoundation/sets.hpp"
#include "simulator/CoreFoundation/strings.hpp"

#include <algorithm>

namespace cf {

namespace {

constinit Type const * const types[] = {
    &__CFAllocator::class_type,    &__CFString::class_type,     &__CFNull::class_type,
    &__CFSet::class_type,          &__CFDictionary::class_type, &__CFArray::class_type,
    &__CFData::class_type,         &__CFBoolean::class_type,    &__CFNumber::class_type,
    &KeyedArchiverUid::class_type, &__CFError::class_type,      &__CFDate::class_type,
};

} // namespace

Type const * find_type(CFTypeID id) noexcept {
    auto const * const found =
        std::ranges::find_if(types, [id](auto const * type) { return type->id == id; });
    return found == std::end(types) ? nullptr : *found;
}

} // namespace cf

CFStringRef CFCopyTypeIDDescription(CFTypeID type) {
    if (type == 0) {
        return cf::create_ascii_string("Not A Type");
    }
    auto const * const found = cf::find_type(type);
    if (found == nullptr) {
        cf::trap("CFCopyTypeIDDescription", "no type has the id " + std::to_string(type));
    }
    return cf::create_ascii_string(found->name);
}
