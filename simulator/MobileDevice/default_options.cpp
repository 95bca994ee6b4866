#include "simulator/MobileDevice/default_options.hpp"

#include "simulator/MobileDevice/values.hpp"

namespace mobile_device {

cf_owner<CFMutableDictionaryRef> make_default_options(CFDictionaryRef scripted) {
    if (scripted) {
        return adopt(CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, scripted));
    }
    struct {
        CFStringRef key;
        CFTypeRef value;
    } const options[] = {
        {CFSTR("BootImageType"), CFSTR("User")},
        {CFSTR("CreateFilesystemPartitions"), kCFBooleanTrue},
        {CFSTR("DFUFileType"), CFSTR("RELEASE")},
        {CFSTR("FlashNOR"), kCFBooleanTrue},
        {CFSTR("KernelCacheType"), CFSTR("Release")},
        {CFSTR("NORImageType"), CFSTR("production")},
        {CFSTR("RestoreBootArgs"), CFSTR("rd=md0 nand-enable-reformat=1 -progress")},
        {CFSTR("SystemImageType"), CFSTR("User")},
        {CFSTR("UpdateBaseband"), kCFBooleanTrue},
    };
    auto result = make_mutable_dictionary();
    CFDictionarySetValue(result.get(), CFSTR("AutoBootDelay"), make_number(0).get());
    for (auto const & [key, value] : options) {
        CFDictionarySetValue(result.get(), key, value);
    }
    return result;
}

} // namespace mobile_device
