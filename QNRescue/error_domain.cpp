#include "QNRescue/error_domain.hpp"

#include "platform/cf_collections.hpp"
#include "platform/cf_strings.hpp"

#include <boost/locale/encoding_utf.hpp>

namespace qnrescue {

namespace {

CFStringRef const domain_key = CFSTR("Domain");
CFStringRef const code_key = CFSTR("Code");
CFStringRef const description_key = CFSTR("Description");
CFStringRef const failure_reason_key = CFSTR("FailureReason");

void set_if_present(CFMutableDictionaryRef dictionary, CFStringRef key,
                    cf_owner<CFTypeRef> const & value) {
    if (dictionary != nullptr && value) {
        CFDictionarySetValue(dictionary, key, value.get());
    }
}

// Another library may have put any object in the place of a text.
void set_if_text(CFMutableDictionaryRef dictionary, CFStringRef key,
                 cf_owner<CFTypeRef> const & value) {
    if (is_a(value.get(), CFStringGetTypeID())) {
        set_if_present(dictionary, key, value);
    }
}

} // namespace

CFStringRef ErrorDescription(Error code) noexcept {
    switch (code) {
    case Error::none:
        return CFSTR("No error");
    case Error::invalid_argument:
        return CFSTR("Invalid argument");
    case Error::bad_command:
        return CFSTR("Bad command");
    case Error::bad_ecid:
        return CFSTR("Bad ECID specified");
    case Error::bad_state:
        return CFSTR("Device is in bad state");
    case Error::recovery_command_failed:
        return CFSTR("Recovery mode command failed");
    case Error::restore_timeout:
        return CFSTR("Restore did not complete before timeout expired");
    case Error::read_error:
        return CFSTR("Read error");
    case Error::unknown:
        break;
    }
    return CFSTR("Unknown error");
}

error_owner CreateDomainError(Error code, std::string const & reason) noexcept {
    auto const user_info = make_mutable_dictionary();
    set_if_present(user_info.get(), kCFErrorLocalizedDescriptionKey,
                   retain(ErrorDescription(code)));
    // A reason may quote bytes of the command line; those that are no UTF-8 are left out, and so is
    // the character after a sequence that is cut off.
    set_if_present(user_info.get(), kCFErrorLocalizedFailureReasonKey,
                   make_cfstring(boost::locale::conv::utf_to_utf<char>(reason)));
    return adopt(CFErrorCreate(kCFAllocatorDefault, CFSTR("qnrescue"), static_cast<CFIndex>(code),
                               user_info.get()));
}

cf_owner<CFDictionaryRef> DictionaryFromError(CFErrorRef error) noexcept {
    if (error == nullptr) {
        return nullptr;
    }
    auto dictionary = make_mutable_dictionary();
    if (!dictionary) {
        return nullptr;
    }
    set_if_text(dictionary.get(), domain_key, retain(CFErrorGetDomain(error)));
    CFIndex const code = CFErrorGetCode(error);
    set_if_present(dictionary.get(), code_key,
                   adopt(CFNumberCreate(kCFAllocatorDefault, kCFNumberCFIndexType, &code)));
    set_if_text(dictionary.get(), description_key, adopt(CFErrorCopyDescription(error)));
    set_if_text(dictionary.get(), failure_reason_key, adopt(CFErrorCopyFailureReason(error)));
    return dictionary;
}

int GetCode(CFErrorRef error) noexcept {
    if (error == nullptr) {
        return 0;
    }
    constexpr CFOptionFlags code_count = 9;
    auto const code = static_cast<CFOptionFlags>(CFErrorGetCode(error));
    return code < code_count ? static_cast<int>(code) : static_cast<int>(Error::unknown);
}

} // namespace qnrescue
