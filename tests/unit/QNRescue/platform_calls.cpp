// The linker leads the calls of each platform function here: what the simulator allocates is not
// the tool's.
#include "platform/CoreFoundation.h"
#include "platform/MobileDevice.h"
#include "tests/unit/QNRescue/allocation_failure.hpp"

namespace {

template <auto Real, typename Type>
struct guarded;

template <auto Real, typename Result, typename... Arguments>
struct guarded<Real, Result(Arguments...)> {
    static Result call(Arguments... arguments) {
        tests::outside_the_tool const outside;
        return Real(arguments...);
    }
};

} // namespace

// The function itself is a jump, since its parameters cannot be taken from its type; the jump
// leaves the arguments where they are.
#define FORWARDED(function)                                                                        \
    extern "C" {                                                                                   \
    decltype(::function) real_##function asm("__real_" #function);                                 \
    [[gnu::used]] constinit auto * target_of_##function =                                          \
        &guarded<&real_##function, decltype(::function)>::call;                                    \
    [[gnu::naked, gnu::used]] void wrapped_##function() asm("__wrap_" #function);                  \
    void wrapped_##function() {                                                                    \
        asm("jmp *target_of_" #function "(%rip)");                                                 \
    }                                                                                              \
    }
#include "forwarded_functions.inc"
