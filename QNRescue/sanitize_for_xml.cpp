#include "QNRescue/sanitize_for_xml.hpp"

#include "QNRescue/error_domain.hpp"

#include <cstddef>
#include <stdexcept>
#include <utility>
#include <vector>

namespace qnrescue {

namespace {

// A container under way: what it holds, and the copy as far as it has been made.
class conversion {
public:
    explicit conversion(CFArrayRef array)
        : members(static_cast<std::size_t>(CFArrayGetCount(array)))
        , copy(make_mutable_array()) {
        for (std::size_t i = 0; i < members.size(); ++i) {
            members[i] = CFArrayGetValueAtIndex(array, static_cast<CFIndex>(i));
        }
    }

    explicit conversion(CFDictionaryRef dictionary)
        : members(static_cast<std::size_t>(CFDictionaryGetCount(dictionary)))
        , keys(members.size())
        , copy(make_mutable_dictionary()) {
        CFDictionaryGetKeysAndValues(dictionary, keys.data(), members.data());
    }

    bool is_complete() const { return !copy || done == members.size(); }

    // The member to convert; null where its key is no string.
    CFTypeRef next() const {
        return keys.empty() || is_a(keys[done], CFStringGetTypeID()) ? members[done] : nullptr;
    }

    // Takes that member as converted, if it could be.
    void add(CFTypeRef converted) {
        if (converted != nullptr && keys.empty()) {
            CFArrayAppendValue(static_cast<CFMutableArrayRef>(copy.get()), converted);
        } else if (converted != nullptr) {
            CFDictionarySetValue(static_cast<CFMutableDictionaryRef>(copy.get()), keys[done],
                                 converted);
        }
        ++done;
    }

    cf_owner<CFTypeRef> take() { return std::move(copy); }

private:
    std::vector<void const *> members;
    std::vector<void const *> keys; // none for an array
    std::unique_ptr<void, CFTypeDeleter> copy;
    std::size_t done = 0;
};

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

// Whether the value is a container; its conversion is then the last one under way.
bool open_container(CFTypeRef value, std::vector<conversion> & under_way) {
    if (is_a(value, CFArrayGetTypeID())) {
        under_way.emplace_back(static_cast<CFArrayRef>(value));
        return true;
    }
    if (is_a(value, CFDictionaryGetTypeID())) {
        under_way.emplace_back(static_cast<CFDictionaryRef>(value));
        return true;
    }
    return false;
}

// Keeps the containers under way in a list, so that no nesting is too deep for the stack.
cf_owner<CFTypeRef> convert(CFTypeRef root, on_error mode) {
    std::vector<conversion> under_way;
    if (!open_container(root, under_way)) {
        return convert_leaf(root);
    }
    for (;;) {
        cf_owner<CFTypeRef> converted;
        if (under_way.back().is_complete()) {
            converted = under_way.back().take();
            under_way.pop_back();
            if (under_way.empty()) {
                return converted;
            }
        } else if (auto const member = under_way.back().next(); open_container(member, under_way)) {
            continue;
        } else {
            converted = convert_leaf(member);
        }
        if (!converted && mode != on_error::skip) {
            return nullptr;
        }
        under_way.back().add(converted.get());
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
