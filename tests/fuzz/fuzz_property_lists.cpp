// Property lists of all forms: what they hold can be written and read again, and is the same then.
#include "platform/CoreFoundation.h"
#include "tests/fuzz/require.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace {

struct release {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};
using owner = std::unique_ptr<void const, release>;

owner read(std::span<std::uint8_t const> bytes, CFOptionFlags options) {
    owner const data(CFDataCreateWithBytesNoCopy(
        kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size()), kCFAllocatorNull));
    CFErrorRef error = nullptr;
    CFPropertyListFormat format = 0;
    owner root(CFPropertyListCreateWithData(kCFAllocatorDefault, static_cast<CFDataRef>(data.get()),
                                            options, &format, &error));
    owner const description(error == nullptr ? nullptr : CFErrorCopyDescription(error));
    owner const failure(error);
    require((root == nullptr) == (failure != nullptr), "no value has an error");
    return root;
}

owner write(CFTypeRef value, CFPropertyListFormat format) {
    CFErrorRef error = nullptr;
    owner data(CFPropertyListCreateData(kCFAllocatorDefault, value, format, 0, &error));
    owner const failure(error);
    require((data == nullptr) == (failure != nullptr), "no data has an error");
    return data;
}

std::span<std::uint8_t const> bytes_of(owner const & data) {
    auto const object = static_cast<CFDataRef>(data.get());
    return {CFDataGetBytePtr(object), static_cast<std::size_t>(CFDataGetLength(object))};
}

owner read_back(owner const & value, CFPropertyListFormat format) {
    auto const written = write(value.get(), format);
    return written ? read(bytes_of(written), kCFPropertyListImmutable) : nullptr;
}

// Not all that can be read can be written and read again, such as dates of far-off years. What can
// be once stays as it is.
void check_round_trip(owner const & value, CFPropertyListFormat format) {
    auto const once = read_back(value, format);
    if (!once) {
        return;
    }
    auto const twice = read_back(once, format);
    require(twice != nullptr, "what was written and read can be again");
    auto const text = write(once.get(), kCFPropertyListXMLFormat_v1_0);
    auto const same_text = write(twice.get(), kCFPropertyListXMLFormat_v1_0);
    require(!text == !same_text && (!text || CFEqual(text.get(), same_text.get())),
            "it reads back as the same");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * bytes, std::size_t size) {
    std::span const input(bytes, size);
    for (CFOptionFlags options = 0; options < 3; ++options) {
        auto const value = read(input, options);
        if (value) {
            check_round_trip(value, kCFPropertyListXMLFormat_v1_0);
            check_round_trip(value, kCFPropertyListBinaryFormat_v1_0);
        }
    }
    return 0;
}
