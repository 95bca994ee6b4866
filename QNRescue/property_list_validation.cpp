#include "QNRescue/qnrescue.h"

#include "platform/CoreFoundation.h"

#include <functional>
#include <unordered_map>
#include <vector>

namespace {

using value_list = std::vector<CFTypeRef>;

// Whether a value is valid as far as it alone can tell; appends its members, to be checked as well.
using validator = std::function<bool(CFTypeRef value, value_list & members)>;
using validator_table = std::unordered_map<CFTypeID, validator>;

void append_member(void const * value, void * members) {
    static_cast<value_list *>(members)->push_back(value);
}

bool validate_array(CFTypeRef value, value_list & members) {
    auto const array = static_cast<CFArrayRef>(value);
    CFArrayApplyFunction(array, CFRange{0, CFArrayGetCount(array)}, append_member, &members);
    return true;
}

bool validate_dictionary(CFTypeRef value, value_list & members) {
    struct entries {
        value_list & members;
        bool valid = true;
    } all{members};
    CFDictionaryApplyFunction(
        static_cast<CFDictionaryRef>(value),
        [](void const * key, void const * member, void * context) {
            auto & found = *static_cast<entries *>(context);
            found.valid = key != nullptr && CFGetTypeID(key) == CFStringGetTypeID() && found.valid;
            found.members.push_back(member);
        },
        &all);
    return all.valid;
}

bool validate_set(CFTypeRef value, value_list & members) {
    CFSetApplyFunction(static_cast<CFSetRef>(value), append_member, &members);
    return true;
}

// An empty validator accepts every value of its type.
validator_table xml_types() {
    return {
        {CFStringGetTypeID(), nullptr},
        {CFNumberGetTypeID(), nullptr},
        {CFBooleanGetTypeID(), nullptr},
        {CFDateGetTypeID(), nullptr},
        {CFDataGetTypeID(), nullptr},
        {CFArrayGetTypeID(), validate_array},
        {CFDictionaryGetTypeID(), validate_dictionary},
    };
}

validator_table other_types() {
    auto table = xml_types();
    table.emplace(CFSetGetTypeID(), validate_set);
    return table;
}

// Never destroyed: a restore may still report while the process ends.
validator_table const & xml_table = *new validator_table(xml_types());
validator_table const & other_table = *new validator_table(other_types());

bool is_valid(CFTypeRef value, validator_table const & table, value_list & members) {
    if (value == nullptr) {
        return false;
    }
    auto const entry = table.find(CFGetTypeID(value));
    return entry != table.end() && (!entry->second || entry->second(value, members));
}

} // namespace

// Keeps what is left to check in a list, so that no nesting is too deep for the stack.
extern "C" bool CFPropertyListValidateForSerialization(CFTypeRef value, long format) {
    auto const & table = format == kCFPropertyListXMLFormat_v1_0 ? xml_table : other_table;
    bool valid = true;
    for (value_list pending{value}; !pending.empty();) {
        auto const next = pending.back();
        pending.pop_back();
        valid = is_valid(next, table, pending) && valid;
    }
    return valid;
}
