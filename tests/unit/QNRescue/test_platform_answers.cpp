// The linker leads the tool's calls of two platform functions here: one is counted, the other
// answers nothing.
#include "QNRescue/error_domain.hpp"
#include "QNRescue/qnrescue.h"

#include <gtest/gtest.h>

namespace {

int retained = 0;

} // namespace

extern "C" {
CFTypeRef real_retain(CFTypeRef object) asm("__real_CFRetain");
CFTypeRef counted_retain(CFTypeRef object) asm("__wrap_CFRetain");
CFStringRef no_description(CFTypeRef object) asm("__wrap_CFCopyDescription");
}

CFTypeRef counted_retain(CFTypeRef object) {
    ++retained;
    return real_retain(object);
}

CFStringRef no_description(CFTypeRef /*object*/) {
    return nullptr;
}

namespace {

using namespace qnrescue;

// The texts themselves are constants, whose references are not counted.
TEST(PlatformAnswers, TextsOfRestoresAreRetainedForTheCaller) {
    for (auto const copy :
         {AMRLocalizedCopyStringForAMROperation, AMRLocalizedCopyStringForAMRError}) {
        for (int const code : {2, -1}) {
            retained = 0;
            auto const text = adopt(copy(code));
            EXPECT_EQ(retained, 1) << code;
        }
    }
}

TEST(PlatformAnswers, ADescriptionThatIsNotThere) {
    EXPECT_EQ(MakeDescription(kCFBooleanTrue), "(null)");
}

} // namespace
