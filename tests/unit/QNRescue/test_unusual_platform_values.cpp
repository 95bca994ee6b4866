// The linker leads the tool's calls of some platform functions here: one is counted, one returns
// nothing, and one an object of another type.
#include "QNRescue/error_domain.hpp"
#include "QNRescue/qnrescue.h"
#include "platform/cf_strings.hpp"

#include <gtest/gtest.h>

namespace {

int retained = 0;

} // namespace

extern "C" {
CFTypeRef real_retain(CFTypeRef object) asm("__real_CFRetain");
CFTypeRef counted_retain(CFTypeRef object) asm("__wrap_CFRetain");
CFStringRef no_description(CFTypeRef object) asm("__wrap_CFCopyDescription");
CFTypeRef no_string(CFErrorRef error) asm("__wrap_CFErrorGetDomain");
}

CFTypeRef counted_retain(CFTypeRef object) {
    ++retained;
    return real_retain(object);
}

CFStringRef no_description(CFTypeRef /*object*/) {
    return nullptr;
}

CFTypeRef no_string(CFErrorRef /*error*/) {
    return kCFBooleanTrue;
}

namespace {

using namespace qnrescue;

// The texts themselves are constants, whose references are not counted.
TEST(PlatformValues, TextsOfRestoresAreRetainedForTheCaller) {
    for (auto const copy :
         {AMRLocalizedCopyStringForAMROperation, AMRLocalizedCopyStringForAMRError}) {
        for (int const code : {2, -1}) {
            retained = 0;
            auto const text = adopt(copy(code));
            EXPECT_EQ(retained, 1) << code;
        }
    }
}

TEST(PlatformValues, ADescriptionThatIsNotThere) {
    EXPECT_EQ(MakeDescription(kCFBooleanTrue), "(null)");
}

TEST(PlatformValues, ADomainThatIsNoString) {
    auto const error = CreateDomainError(Error::bad_state, "reason");
    auto const dictionary = DictionaryFromError(error.get());
    EXPECT_EQ(CFDictionaryGetValue(dictionary.get(), CFSTR("Domain")), nullptr);
    EXPECT_EQ(CFDictionaryGetCount(dictionary.get()), 3);
}

} // namespace
