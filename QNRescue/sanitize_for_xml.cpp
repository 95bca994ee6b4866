#include "QNRescue/sanitize_for_xml.hpp"

#include "QNRescue/error_domain.hpp"
#include "platform/cf_collections.hpp"

#include <cstddef>
#include <stdexcept>
#include <utility>
#include <vector>

namespace qnrescue {

namespace {

// An array or dictionary that is being converted: its members, and the copy as far as it is made.
class container_conversion {
public:
    container_conversion(CFArrayRef array, cf_owner<CFMutableArrayRef> empty)
        : members(static_cast<std::size_t>(CFArrayGetCount(array)))
        , array_copy(std::move(empty)) {
        for (std::size_t i = 0; i < members.size(); ++i) {
            members[i] = CFArrayGetValueAtIndex(array, static_cast<CFIndex>(i));
        }
    }

    container_conversion(CFDictionaryRef dictionary, cf_owner<CFMutableDictionaryRef> empty)
        : members(static_cast<std::size_t>(CFDictionaryGetCount(dictionary)))
        , keys(members.size())
        , dictionary_copy(std::move(empty)) {
        CFDictionaryGetKeysAndValues(dictionary, keys.data(), members.data());
    }

    bool is_complete() const { return done == members.size(); }

    // Returns the member to convert next; null, which cannot be converted, where its key is not a
    // string.
    CFTypeRef next() const {
        bool const has_valid_key = array_copy || is_a(keys[done], CFStringGetTypeID());
        return has_valid_key ? members[done] : nullptr;
    }

    // Puts what became of that member into the copy.
    void add(CFTypeRef converted) {
        if (array_copy) {
            CFArrayAppendValue(array_copy.get(), converted);
        } else {
            CFDictionarySetValue(dictionary_copy.get(), keys[done], converted);
        }
        ++done;
    }

    // Leaves that member out.
    void skip() { ++done; }

    cf_owner<CFTypeRef> take_copy() {
        return array_copy ? cf_owner<CFTypeRef>(std::move(array_copy))
                          : cf_owner<CFTypeRef>(std::move(dictionary_copy));
    }

private:
    std::vector<void const *> members;
    std::vector<void const *> keys; // of a dictionary only
    cf_owner<CFMutableArrayRef> array_copy;
    cf_owner<CFMutableDictionaryRef> dictionary_copy;
    std::size_t done = 0; // members
};

// Converts a value that is not a container; null where no property list can hold it.
cf_owner<CFTypeRef> convert_leaf(CFTypeRef value) {
    if (value == nullptr) {
        return nullptr;
    }
    auto const type = CFGetTypeID(value);
    if (type == CFStringGetTypeID() || type == CFNumberGetTypeID() ||
        type == CFBooleanGetTypeID() || type == CFDateGetTypeID() || type == CFDataGetTypeID()) {
        return retain(value);
    }
    if (type == CFErrorGetTypeID()) {
        return DictionaryFromError(static_cast<CFErrorRef>(const_cast<void *>(value)));
    }
    return nullptr;
}

// Begins to convert the value if it is a container that can be copied; its conversion is then the
// last one under way. Returns whether it is.
bool begin_container(CFTypeRef value, std::vector<container_conversion> & under_way) {
    if (is_a(value, CFArrayGetTypeID())) {
        if (auto copy = make_mutable_array()) {
            under_way.emplace_back(static_cast<CFArrayRef>(value), std::move(copy));
            return true;
        }
    } else if (is_a(value, CFDictionaryGetTypeID())) {
        if (auto copy = make_mutable_dictionary()) {
            under_way.emplace_back(static_cast<CFDictionaryRef>(value), std::move(copy));
            return true;
        }
    }
    return false;
}

// Converts the value; null where it cannot be converted. Keeps the containers under way in a list,
// so that no nesting is too deep for the stack.
cf_owner<CFTypeRef> convert(CFTypeRef root, on_error mode) {
    std::vector<container_conversion> under_way;
    if (!begin_container(root, under_way)) {
        return convert_leaf(root);
    }
    for (;;) {
        cf_owner<CFTypeRef> converted;
        if (under_way.back().is_complete()) {
            converted = under_way.back().take_copy();
            under_way.pop_back();
            if (under_way.empty()) {
                return converted;
            }
        } else if (auto const member = under_way.back().next();
                   begin_container(member, under_way)) {
            continue;
        } else {
            converted = convert_leaf(member);
        }
        if (converted) {
            under_way.back().add(converted.get());
        } else if (mode == on_error::skip) {
            under_way.back().skip();
        } else {
            return nullptr;
        }
    }
}

} // namespace

cf_owner<CFTypeRef> sanitize_for_xml(CFTypeRef value, on_error mode) {
    auto converted = convert(value, mode);
    if (!converted && mode == on_error::raise) {
        throw std::runtime_error("Could not convert to xml plist");
    }
    return converted;
}

} // namespace qnrescue
