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

validator_table const & table_of(long format) {
    return format == kCFPropertyListXMLFormat_v1_0 ? xml_table : other_table;
}

// Returns null where no value of this type is valid.
validator const * validator_of(CFTypeRef value, validator_table const & table) {
    if (value == nullptr) {
        return nullptr;
    }
    auto const entry = table.find(CFGetTypeID(value));
    return entry == table.end() ? nullptr : &entry->second;
}

// What is known of a container while its members are checked. CoreFoundation calls check_member and
// check_entry for each member. They must not throw, and so note that memory is short.
struct member_check {
    validator_table const & table;
    std::vector<CFTypeRef> containers; // members whose own members are not checked yet
    bool valid = true;
    bool out_of_memory = false;
};

void check_member(void const * member, void * context) noexcept {
    auto & check = *static_cast<member_check *>(context);
    auto const * const validate = validator_of(member, check.table);
    if (validate == nullptr) {
        check.valid = false;
    } else if (*validate) {
        try {
            check.containers.push_back(member);
        } catch (...) {
            check.out_of_memory = true;
        }
    }
}

void check_entry(void const * key, void const * member, void * context) noexcept {
    auto & check = *static_cast<member_check *>(context);
    check.valid = is_a(key, CFStringGetTypeID()) && check.valid;
    check_member(member, context);
}

void check_members(CFTypeRef container, member_check & check) {
    auto const type = CFGetTypeID(container);
    if (type == CFDictionaryGetTypeID()) {
        CFDictionaryApplyFunction(static_cast<CFDictionaryRef>(container), check_entry, &check);
    } else if (type == CFArrayGetTypeID()) {
        auto const array = static_cast<CFArrayRef>(container);
        CFArrayApplyFunction(array, CFRange{0, CFArrayGetCount(array)}, check_member, &check);
    } else {
        CFSetApplyFunction(static_cast<CFSetRef>(container), check_member, &check);
    }
    if (check.out_of_memory) {
        throw std::bad_alloc();
    }
}

// Returns whether every key is a string and every member valid, at all depths. Containers among the
// members are put on a list instead of being validated by a call, so that no nesting is too deep
// for the stack.
bool members_are_valid(CFTypeRef container, long format) {
    member_check check{table_of(format), {}};
    check_members(container, check);
    while (!check.containers.empty()) {
        auto const next = check.containers.back();
        check.containers.pop_back();
        check_members(next, check);
    }
    return check.valid;
}

} // namespace

bool is_valid_property_list(CFTypeRef value, long format) {
    auto const * const validate = validator_of(value, table_of(format));
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
