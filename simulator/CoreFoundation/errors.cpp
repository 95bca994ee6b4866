#include "simulator/CoreFoundation/errors.hpp"

#include "simulator/CoreFoundation/descriptions.hpp"
#include "simulator/CoreFoundation/dictionaries.hpp"
#include "simulator/CoreFoundation/encodings.hpp"

#include <system_error>

namespace cf {

namespace {

constinit __CFString description_key{"NSDescription"};
constinit __CFString debug_description_key{"NSDebugDescription"};
constinit __CFString localized_description_key{"NSLocalizedDescription"};
constinit __CFString failure_key{"NSLocalizedFailure"};
constinit __CFString failure_reason_key{"NSLocalizedFailureReason"};
constinit __CFString underlying_error_key{"NSUnderlyingError"};

__CFError const & error_of(object const & object) {
    return static_cast<__CFError const &>(object);
}

void destroy_error(object & object, doomed_objects & doomed) {
    auto const & error = error_of(object);
    doomed.release(*error.domain);
    if (error.user_info != nullptr) {
        doomed.release(*error.user_info);
    }
    destroy<__CFError>(object, doomed);
}

bool equal_user_infos(CFDictionaryRef left, CFDictionaryRef right) {
    if (left == nullptr || right == nullptr) {
        auto const * const one = left != nullptr ? left : right;
        return one == nullptr || one->entries.count() == 0;
    }
    return equal(*left, *right);
}

bool equal_errors(object const & left, object const & right) {
    auto const & one = error_of(left);
    auto const & other = error_of(right);
    return one.code == other.code && equal(*one.domain, *other.domain) &&
           equal_user_infos(one.user_info, other.user_info);
}

CFHashCode hash_error(object const & object) {
    auto const & error = error_of(object);
    return hash(*error.domain) + static_cast<CFHashCode>(error.code);
}

// Returns the value in the user info, borrowed, or null.
object const * find(__CFError const & error, __CFString const & key) {
    auto const * const found =
        error.user_info != nullptr ? error.user_info->entries.find(&key) : nullptr;
    return found != nullptr ? static_cast<object const *>(found->value) : nullptr;
}

// Returns the reason in the user info or, for a POSIX error, the C library's text; owned by the
// caller.
CFStringRef copy_failure_reason(__CFError const & error) {
    static constinit __CFString const posix_domain{"NSPOSIXErrorDomain"};
    if (auto const * const reason = find(error, failure_reason_key)) {
        retain(*reason);
        return static_cast<CFStringRef>(reason);
    }
    if (equal(*error.domain, posix_domain)) {
        return create_utf8_string(std::generic_category().message(static_cast<int>(error.code)));
    }
    return nullptr;
}

// Appends the separator and the reason; returns false if the error has no reason.
bool append_failure_reason(std::u16string & text, __CFError const & error,
                           std::string_view separator = {}) {
    auto const * const reason = copy_failure_reason(error);
    if (reason == nullptr) {
        return false;
    }
    append_ascii(text, separator);
    append_display(text, *reason);
    release(*reason);
    return true;
}

std::u16string description_of(__CFError const & error) {
    std::u16string text;
    if (auto const * const failure = find(error, failure_key)) {
        append_display(text, *failure);
        append_failure_reason(text, error, " ");
        return text;
    }
    text = u"The operation couldn\u2019t be completed. ";
    if (append_failure_reason(text, error)) {
        return text;
    }
    append_ascii(text, "(");
    append(text, error.domain);
    append_ascii(text, " error " + std::to_string(error.code));
    if (auto const * const description = find(error, description_key)) {
        append_ascii(text, " - ");
        append_display(text, *description);
        append_ascii(text, ")");
    } else {
        append_ascii(text, ".)");
    }
    return text;
}

// Appends the text that says most to a programmer, and the debug description where that is another.
void append_quoted_text(std::u16string & text, __CFError const & error) {
    auto const * const description = find(error, description_key);
    auto const * const debug_description = find(error, debug_description_key);
    append_ascii(text, "\"");
    if (description != nullptr) {
        append_display(text, *description);
    } else if (debug_description != nullptr) {
        append_display(text, *debug_description);
    } else if (auto const * const localized = find(error, localized_description_key)) {
        append_display(text, *localized);
    } else if (!append_failure_reason(text, error)) {
        append_ascii(text, "(null)");
    }
    append_ascii(text, "\"");
    if (description != nullptr && debug_description != nullptr &&
        !equal(*description, *debug_description)) {
        append_ascii(text, " (");
        append_display(text, *debug_description);
        append_ascii(text, ")");
    }
}

void append_entry(std::u16string & text, object const & key, object const & value) {
    append_display(text, key);
    append_ascii(text, "=");
    if (!is<__CFError>(&value) || !equal(key, underlying_error_key)) {
        append_display(text, value);
        return;
    }
    append_address(text, &value);
    append_ascii(text, " {");
    append_display(text, value);
    append_ascii(text, "}");
}

void describe_error(object const & object, std::u16string & text) {
    auto const & error = error_of(object);
    append_ascii(text, "Error Domain=");
    append(text, error.domain);
    append_ascii(text, " Code=" + std::to_string(error.code) + " ");
    append_quoted_text(text, error);
    if (error.user_info == nullptr || error.user_info->entries.count() == 0) {
        return;
    }
    auto const * separator = " UserInfo={";
    for_each_entry(error.user_info, [&](void const * key, void const * value) {
        append_ascii(text, std::exchange(separator, ", "));
        append_entry(text, object_of(key), object_of(value));
    });
    append_ascii(text, "}");
}

} // namespace

} // namespace cf

constinit cf::object_type const __CFError::class_type{
    .id = 27,
    .name = "CFError",
    .destroy = cf::destroy_error,
    .equal = cf::equal_errors,
    .hash = cf::hash_error,
    .describe = cf::describe_error,
};

constinit CFStringRef const kCFErrorLocalizedDescriptionKey = &cf::localized_description_key;
constinit CFStringRef const kCFErrorLocalizedFailureReasonKey = &cf::failure_reason_key;

CFTypeID CFErrorGetTypeID() {
    return __CFError::class_type.id;
}

CFErrorRef CFErrorCreate(CFAllocatorRef allocator, CFStringRef domain, CFIndex code,
                         CFDictionaryRef user_info) {
    cf::checked<__CFString>(domain);
    return cf::create<__CFError>(CFStringCreateCopy(allocator, domain), code,
                                 user_info != nullptr ? CFDictionaryCreateCopy(allocator, user_info)
                                                      : nullptr);
}

CFStringRef CFErrorGetDomain(CFErrorRef error) {
    return cf::checked<__CFError>(error).domain;
}

CFIndex CFErrorGetCode(CFErrorRef error) {
    return cf::checked<__CFError>(error).code;
}

CFDictionaryRef CFErrorCopyUserInfo(CFErrorRef error) {
    auto const & checked = cf::checked<__CFError>(error);
    if (checked.user_info == nullptr) {
        return cf::create_object_dictionary(0, cf::mutability::immutable);
    }
    cf::retain(*checked.user_info);
    return checked.user_info;
}

// The values of the user info are not checked: whatever is there in place of a text is returned.
CFStringRef CFErrorCopyDescription(CFErrorRef error) {
    auto const & checked = cf::checked<__CFError>(error);
    if (auto const * const localized = cf::find(checked, cf::localized_description_key)) {
        cf::retain(*localized);
        return static_cast<CFStringRef>(localized);
    }
    return cf::create_string(cf::description_of(checked));
}

CFStringRef CFErrorCopyFailureReason(CFErrorRef error) {
    return cf::copy_failure_reason(cf::checked<__CFError>(error));
}
