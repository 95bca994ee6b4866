#include "simulator/CoreFoundation/property_list/validation.hpp"

#include "simulator/CoreFoundation/arrays.hpp"
#include "simulator/CoreFoundation/data.hpp"
#include "simulator/CoreFoundation/dictionaries.hpp"
#include "simulator/CoreFoundation/numbers.hpp"
#include "simulator/CoreFoundation/property_list/uid.hpp"

#include <fmt/format.h>

#include <unordered_map>
#include <vector>

namespace cf {

namespace {

// XML repeats a container wherever it is referred to; more than this is refused.
constexpr unsigned most_repetitions = 1537;

struct fault {
    std::string text;
};

bool is_leaf(CFTypeID type) {
    return type == CFStringGetTypeID() || type == CFNumberGetTypeID() ||
           type == CFBooleanGetTypeID() || type == CFDataGetTypeID() || type == CFDateGetTypeID() ||
           type == keyed_archiver_uid::class_type.id;
}

// Walks the containers with an explicit stack, so that no nesting is too deep.
class validator {
public:
    void check(CFPropertyListRef root) {
        if (root == nullptr) {
            throw fault{"property lists cannot contain NULL"};
        }
        check_element(root);
        while (!pending.empty()) {
            auto const step = pending.back();
            pending.pop_back();
            if (step.leaves) {
                visited[step.container].is_open = false;
            } else {
                enter(step.container);
            }
        }
    }

private:
    struct walk_step {
        CFTypeRef container;
        bool leaves;
    };
    struct container_visits {
        unsigned count = 0;
        bool is_open = false;
    };

    void enter(CFTypeRef container) {
        auto & visits = visited[container];
        if (visits.is_open) {
            throw fault{"property lists cannot contain recursive container references"};
        }
        if (++visits.count > most_repetitions) {
            throw fault{"Too many nested arrays or dictionaries please use "
                        "kCFPropertyListBinaryFormat_v1_0 instead which supports references"};
        }
        visits.is_open = true;
        pending.push_back({container, true});
        if (is<__CFArray>(container)) {
            check_elements(static_cast<CFArrayRef>(container));
        } else {
            check_entries(static_cast<CFDictionaryRef>(container));
        }
    }

    void check_elements(CFArrayRef array) {
        for (auto const * const element : values_of(array)) {
            if (element == nullptr) {
                throw fault{"property list arrays cannot contain NULL"};
            }
            check_element(element);
        }
    }

    void check_entries(CFDictionaryRef dictionary) {
        for_each_entry(dictionary, [&](void const * key, void const * value) {
            if (key == nullptr) {
                throw fault{"property list dictionaries cannot contain NULL keys"};
            }
            if (!is<__CFString>(key)) {
                throw fault{fmt::format("property list dictionaries may only have keys which are "
                                        "CFStrings, not '{}'",
                                        object_of(key).type->name)};
            }
            if (value == nullptr) {
                throw fault{"property list dictionaries cannot contain NULL values"};
            }
            check_element(value);
        });
    }

    void check_element(CFTypeRef element) {
        auto const is_array = is<__CFArray>(element);
        if (is_array || is<__CFDictionary>(element)) {
            auto const is_empty =
                is_array ? values_of(static_cast<CFArrayRef>(element)).empty()
                         : CFDictionaryGetCount(static_cast<CFDictionaryRef>(element)) == 0;
            if (!is_empty) {
                pending.push_back({element, false});
            }
        } else if (!is_leaf(object_of(element).type->id)) {
            throw fault{fmt::format("property lists cannot contain objects of type '{}'",
                                    object_of(element).type->name)};
        }
    }

    std::vector<walk_step> pending;
    std::unordered_map<CFTypeRef, container_visits> visited;
};

} // namespace

std::optional<std::string> property_list_fault(CFPropertyListRef root) {
    try {
        validator{}.check(root);
    } catch (fault const & fault) {
        return fmt::format("Property list invalid for format: {} ({})",
                           CFPropertyListFormat{kCFPropertyListXMLFormat_v1_0}, fault.text);
    }
    return {};
}

} // namespace cf
