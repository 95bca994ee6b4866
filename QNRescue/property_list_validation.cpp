#include "QNRescue/qnrescue.h"

#include "platform/CoreFoundation.h"

#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using validator = std::function<bool(CFTypeRef value, long format)>;
using validator_table = std::unordered_map<CFTypeID, validator>;

// The members of containers that are still to be checked: a validator judges its container alone
// and leaves the members here, so that no nesting is too deep for the stack.
using value_list = std::vector<CFTypeRef>;
thread_local value_list * pending = nullptr;

void check_later(void const * member, void * /*context*/) {
    pending->push_back(member);
}

bool validate_array(CFTypeRef value, long /*format*/) {
    auto const array = static_cast<CFArrayRef>(value);
    CFArrayApplyFunction(array, CFRange{0, CFArrayGetCount(array)}, check_later, nullptr);
    return true;
}

bool validate_dictionary(CFTypeRef value, long /*format*/) {
    bool valid = true;
    CFDictionaryApplyFunction(
        static_cast<CFDictionaryRef>(value),
        [](void const * key, void const * member, void * context) {
            auto & all_valid = *static_cast<bool *>(context);
            all_valid = key != nullptr && CFGetTypeID(key) == CFStringGetTypeID() && all_valid;
            check_later(member, nullptr);
        },
        &valid);
    return valid;
}

bool validate_set(CFTypeRef value, long /*format*/) {
    CFSetApplyFunction(static_cast<CFSetRef>(value), check_later, nullptr);
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

// All of the value but its members, which are left for later.
bool is_valid(CFTypeRef value, long format) {
    if (value == nullptr) {
        return false;
    }
    auto const & table = format == kCFPropertyListXMLFormat_v1_0 ? xml_table : other_table;
    auto const entry = table.find(CFGetTypeID(value));
    return entry != table.end() && (!entry->second || entry->second(value, format));
}

} // namespace

extern "C" bool CFPropertyListValidateForSerialization(CFTypeRef value, long format) {
    value_list values{value};
    auto const outer = std::exchange(pending, &values);
    bool valid = true;
    while (!values.empty()) {
        auto const next = values.back();
        values.pop_back();
        valid = is_valid(next, format) && valid;
    }
    pending = outer;
    return valid;
}
