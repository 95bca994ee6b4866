// The strings of CFSTR: one immortal object for each text.
#include "simulator/CoreFoundation/encodings.hpp"

#include <array>
#include <cstdlib>
#include <functional>
#include <memory>

namespace cf {

namespace {

struct constant {
    std::string text;
    CFStringRef string;
    constant * next;
};

// A hash table that only grows. CFSTR is called all the time by all threads, so that finding takes
// no lock: lists are only ever extended at their head.
constinit std::array<std::atomic<constant *>, 1024> buckets{};

CFStringRef find_constant(constant const * first, constant const * end, std::string_view text) {
    for (auto const * each = first; each != end; each = each->next) {
        if (each->text == text) {
            return each->string;
        }
    }
    return nullptr;
}

CFStringRef create_constant(std::string_view text) {
    if (!is_ascii(text)) {
        write_error_line("CoreFoundation: CFSTR text is not ASCII and read as MacRoman: " +
                         std::string{text});
    }
    // NOLINTNEXTLINE(bugprone-unchecked-optional-access): MacRoman has a character for each byte
    return create_constant_string(*decode(text, kCFStringEncodingMacRoman, false));
}

void destroy_constant(CFStringRef string) {
    std::free(const_cast<__CFString *>(string));
}

CFStringRef add(std::atomic<constant *> & bucket, constant * known, std::string_view text) {
    auto added =
        std::make_unique<constant>(constant{std::string{text}, create_constant(text), known});
    while (!bucket.compare_exchange_weak(added->next, added.get(), std::memory_order_acq_rel,
                                         std::memory_order_acquire)) {
        if (auto const * const string = find_constant(added->next, known, text)) {
            destroy_constant(added->string); // another thread was faster
            return string;
        }
    }
    return added.release()->string;
}

} // namespace

} // namespace cf

CFStringRef __CFStringMakeConstantString(char const * text) {
    if (text == nullptr) {
        cf::trap("__CFStringMakeConstantString", "the text is null");
    }
    std::string_view const sought{text};
    auto & bucket = cf::buckets[std::hash<std::string_view>{}(sought) % cf::buckets.size()];
    auto * const first = bucket.load(std::memory_order_acquire);
    auto const * const string = cf::find_constant(first, nullptr, sought);
    return string != nullptr ? string : cf::add(bucket, first, sought);
}
