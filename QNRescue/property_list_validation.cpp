#include "QNRescue/property_list_validation.hpp"

#include "QNRescue/qnrescue.h"

#include <functional>
#include <new>
#include <unordered_map>
#include <vector>

namespace qnrescue {

namespace {

using validator = std::function<bool(CFTypeRef value, long format)>;
using validator_table = std::unordered_map<CFTypeID, validator>;

// The members of containers that are still to be looked at, and what was found so far. It is filled
// by functions that CoreFoundation calls, which cannot throw: they note a member without memory.
struct member_walk {
    std::vector<CFTypeRef> members;
    bool valid = true;
    bool complete = true;
};

void add_member(void const * member, void * context) noexcept {
    auto & walk = *static_cast<member_walk *>(context);
    try {
        walk.members.push_back(member);
    } catch (...) {
        walk.complete = false;
    }
}

void add_entry(void const * key, void const * member, void * context) noexcept {
    auto & walk = *static_cast<member_walk *>(context);
    walk.valid = is_a(key, CFStringGetTypeID()) && walk.valid;
    add_member(member, context);
}

// Adds the members of an array, a dictionary or a set.
void add_members(CFTypeRef container, member_walk & walk) {
    auto const type = CFGetTypeID(container);
    if (type == CFArrayGetTypeID()) {
        auto const array = static_cast<CFArrayRef>(container);
        CFArrayApplyFunction(array, CFRange{0, CFArrayGetCount(array)}, add_member, &walk);
    } else if (type == CFDictionaryGetTypeID()) {
        CFDictionaryApplyFunction(static_cast<CFDictionaryRef>(container), add_entry, &walk);
    } else {
        CFSetApplyFunction(static_cast<CFSetRef>(container), add_member, &walk);
    }
    if (!walk.complete) {
        throw std::bad_alloc();
    }
}

bool members_are_valid(CFTypeRef container, long format);

// An empty validator accepts every value of its type.
validator_table xml_types() {
    return {
        {CFStringGetTypeID(), nullptr},
        {CFNumberGetTypeID(), nullptr},
        {CFBooleanGetTypeID(), nullptr},
        {CFDateGetTypeID(), nullptr},
        {CFDataGetTypeID(), nullptr},
        {CFArrayGetTypeID(), members_are_valid},
        {CFDictionaryGetTypeID(), members_are_valid},
    };
}

validator_table other_types() {
    auto table = xml_types();
    table.emplace(CFSetGetTypeID(), members_are_valid);
    return table;
}

// Never destroyed: a restore may still report while the process ends.
validator_table const & xml_table = *new validator_table(xml_types());
validator_table const & other_table = *new validator_table(other_types());

// Null where no value of this type is valid.
validator const * validator_of(CFTypeRef value, long format) {
    if (value == nullptr) {
        return nullptr;
    }
    auto const & table = format == kCFPropertyListXMLFormat_v1_0 ? xml_table : other_table;
    auto const entry = table.find(CFGetTypeID(value));
    return entry == table.end() ? nullptr : &entry->second;
}

// Every key is a string and every member valid, at all depths: a container among the members adds
// its own to the list instead of being validated by a call, so that no nesting is too deep for the
// stack.
bool members_are_valid(CFTypeRef container, long format) {
    member_walk walk;
    add_members(container, walk);
    while (!walk.members.empty()) {
        auto const member = walk.members.back();
        walk.members.pop_back();
        auto const * const validate = validator_of(member, format);
        if (validate == nullptr) {
            walk.valid = false;
        } else if (*validate) {
            add_members(member, walk);
        }
    }
    return walk.valid;
}

} // namespace

bool is_valid_property_list(CFTypeRef value, long format) {
    auto const * const validate = validator_of(value, format);
    return validate != nullptr && (!*validate || (*validate)(value, format));
}

} // namespace qnrescue

extern "C" bool CFPropertyListValidateForSerialization(CFTypeRef value, long format) {
    try {
        return qnrescue::is_valid_property_list(value, format);
    } catch (...) {
        return false; // out of memory, and the caller may be written in C
    }
}
