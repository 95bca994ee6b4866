// One function for each that the tool imports: it fails where the scenario says so and passes every
// other call on to the library.
#include "platform/CoreFoundation.h"
#include "platform/MobileDevice.h"
#include "simulator/faults/counted_function.hpp"

#include <array>
#include <type_traits>

namespace faults {
namespace {

using mobile_device::scripted_fault;

template <typename Value>
constexpr bool is_error_argument = std::is_same_v<Value, CFErrorRef *>;

template <typename Value>
void give_error(Value const & argument, scripted_fault const & fault) {
    if constexpr (is_error_argument<Value>) {
        if (argument != nullptr && fault.result) {
            *argument = CFErrorCreate(kCFAllocatorDefault, CFSTR("simulator"),
                                      static_cast<CFIndex>(*fault.result), nullptr);
        }
    }
}

template <typename Result>
Result failure([[maybe_unused]] std::int64_t result) {
    if constexpr (std::is_pointer_v<Result>) {
        return nullptr;
    } else if constexpr (std::is_same_v<Result, CFRange>) {
        return {kCFNotFound, 0};
    } else {
        return static_cast<Result>(result);
    }
}

template <typename Function, typename Type>
struct faulty;

template <typename Function, typename Result, typename... Arguments>
struct faulty<Function, Result(Arguments...)> {
    static inline constinit counted_function count{Function::name};

    static Result call(Arguments... arguments) {
        auto const fault = count.begin_call();
        if (fault == nullptr) {
            return Function::pointer()(arguments...);
        }
        (give_error(arguments, *fault), ...);
        constexpr bool gives_error = (is_error_argument<Arguments> || ...);
        return failure<Result>(gives_error ? 0 : fault->result.value_or(0));
    }
};

} // namespace
} // namespace faults

// What is exported is a jump, since a function's parameters cannot be taken from its type; the jump
// leaves the arguments where they are.
#define FORWARDED(function)                                                                        \
    namespace {                                                                                    \
    struct function##_traits {                                                                     \
        static constexpr auto name = #function;                                                    \
        static auto pointer() {                                                                    \
            return &::function;                                                                    \
        }                                                                                          \
    };                                                                                             \
    }                                                                                              \
    extern "C" {                                                                                   \
    [[gnu::used]] constinit auto * target_of_##function =                                          \
        &faults::faulty<function##_traits, decltype(::function)>::call;                            \
    [[gnu::naked]] void faulty_##function() {                                                      \
        asm("jmp *target_of_" #function "(%rip)");                                                 \
    }                                                                                              \
    }
#include "forwarded_functions.inc"
#undef FORWARDED

namespace faults {

std::span<counted_function * const> counted_functions() {
    static constexpr std::array all{
#define FORWARDED(function) &faulty<function##_traits, decltype(::function)>::count,
#include "forwarded_functions.inc"
#undef FORWARDED
    };
    return all;
}

} // namespace faults
