#include "QNRescue/qnrescue.h"

#include "platform/CoreFoundation.h"

#include <functional>
#include <unordered_map>

namespace {

using validator = std::function<bool(CFTypeRef value, long format)>;
using validator_table = std::unordered_map<CFTypeID, validator>;

// Applies a check to every member of a container, also after one has failed.
struct container_check {
    long format;
    bool valid = true;

    static void member(void const * value, void * context) {
        auto & check = *static_cast<container_check *>(context);
        check.valid = CFPropertyListValidateForSerialization(value, check.format) && check.valid;
    }

    static void entry(void const * key, void const * value, void * context) {
        auto & check = *static_cast<container_check *>(context);
        check.valid = key != nullptr && CFGetTypeID(key) == CFStringGetTypeID() && check.valid;
        member(value, context);
    }
};

bool validate_array(CFTypeRef value, long format) {
    auto const array = static_cast<CFArrayRef>(value);
    container_check check{format};
    CFArrayApplyFunction(array, CFRange{0, CFArrayGetCount(array)}, container_check::member,
                         &check);
    return check.valid;
}

bool validate_dictionary(CFTypeRef value, long format) {
    container_check check{format};
    CFDictionaryApplyFunction(static_cast<CFDictionaryRef>(value), container_check::entry, &check);
    return check.valid;
}

bool validate_set(CFTypeRef value, long format) {
    container_check check{format};
    CFSetApplyFunction(static_cast<CFSetRef>(value), container_check::member, &check);
    return check.valid;
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

} // namespace

extern "C" bool CFPropertyListValidateForSerialization(CFTypeRef value, long format) {
    if (value == nullptr) {
        return false;
    }
    auto const & table = format == kCFPropertyListXMLFormat_v1_0 ? xml_table : other_table;
    auto const entry = table.find(CFGetTypeID(value));
    if (entry == table.end()) {
        return false;
    }
    return !entry->second || entry->second(value, format);
}
