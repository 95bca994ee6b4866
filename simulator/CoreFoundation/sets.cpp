#include "simulator/CoreFoundation/sets.hpp"

#include "simulator/CoreFoundation/descriptions.hpp"

#include <fmt/format.h>

namespace cf {

namespace {

__CFSet const & set_of(object const & object) {
    return static_cast<__CFSet const &>(object);
}

void destroy_set(object & object, doomed_objects & doomed) {
    static_cast<__CFSet &>(object).members.release_all(doomed);
    destroy<__CFSet>(object, doomed);
}

bool equal_sets(object const & left, object const & right) {
    return equal(set_of(left).members, set_of(right).members);
}

CFHashCode hash_set(object const & object) {
    return set_of(object).members.count();
}

void describe_set(object const & object, std::u16string & text) {
    auto const & set = set_of(object);
    append_heading(text, object, "CFBasicHash");
    append_ascii(text, set.is_mutable ? "{type = mutable set" : "{type = immutable set");
    append_ascii(text, ", count = " + std::to_string(set.members.count()) + ",\nentries =>\n");
    int number = 0;
    set.members.for_each([&](void const * member, void const *) {
        append_ascii(text, fmt::format("\t{} : ", number++));
        set.members.keys().describe(member, text);
        append_ascii(text, "\n");
    });
    append_ascii(text, "}\n");
}

} // namespace

} // namespace cf

constinit cf::object_type const __CFSet::class_type{
    .id = 17,
    .name = "CFSet",
    .destroy = cf::destroy_set,
    .equal = cf::equal_sets,
    .hash = cf::hash_set,
    .describe = cf::describe_set,
};

CFTypeID CFSetGetTypeID() {
    return __CFSet::class_type.id;
}

CFMutableSetRef CFSetCreateMutable(CFAllocatorRef, CFIndex capacity,
                                   CFSetCallBacks const * callbacks) {
    auto * const set =
        cf::create<__CFSet>(cf::element_callbacks::from(callbacks), cf::mutability::is_mutable);
    set->members.reserve(capacity);
    return set;
}

CFIndex CFSetGetCount(CFSetRef set) {
    return static_cast<CFIndex>(cf::checked<__CFSet>(set).members.count());
}

void CFSetAddValue(CFMutableSetRef set, void const * value) {
    auto & checked = cf::checked(set);
    if (!checked.is_mutable) {
        cf::trap("CFSetAddValue", "the set is immutable");
    }
    checked.members.keys().require(value, "CFSetAddValue");
    checked.members.add(value, nullptr);
}

void CFSetGetValues(CFSetRef set, void const ** values) {
    cf::checked<__CFSet>(set).members.for_each(
        [&](void const * member, void const *) { *values++ = member; });
}

void CFSetApplyFunction(CFSetRef set, CFSetApplierFunction applier, void * context) {
    cf::checked<__CFSet>(set).members.for_each(
        [&](void const * member, void const *) { applier(member, context); });
}
