// Property lists of all forms: what they hold can be written in XML and read again, and is the same
// then.
#include "platform/cf_ownership.hpp"
#include "tests/fuzz/require.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace {

using owner = qnrescue::cf_owner<CFTypeRef>;

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

owner write(CFTypeRef value) {
    CFErrorRef error = nullptr;
    owner data(CFPropertyListCreateData(kCFAllocatorDefault, value, kCFPropertyListXMLFormat_v1_0,
                                        0, &error));
    owner const failure(error);
    require((data == nullptr) == (failure != nullptr), "no data has an error");
    return data;
}

std::span<std::uint8_t const> bytes_of(owner const & data) {
    auto const object = static_cast<CFDataRef>(data.get());
    return {CFDataGetBytePtr(object), static_cast<std::size_t>(CFDataGetLength(object))};
}

// Every time that a text is read it loses a byte-order mark at its beginning.
bool has_mark(std::span<std::uint8_t const> document) {
    constexpr std::uint8_t mark[] = {0xef, 0xbb, 0xbf};
    return !std::ranges::search(document, mark).empty();
}

// Not all that can be read can be written and read again, such as dates of far-off years. What can
// be once stays as it is.
void check_round_trip(CFTypeRef value) {
    auto const written = write(value);
    auto const once = written ? read(bytes_of(written), kCFPropertyListImmutable) : nullptr;
    auto const text = once ? write(once.get()) : nullptr;
    if (!text) {
        return;
    }
    auto const twice = read(bytes_of(text), kCFPropertyListImmutable);
    require(twice != nullptr, "what was written and read can be again");
    auto const same_text = write(twice.get());
    require(same_text != nullptr, "what was written once can be again");
    require(has_mark(bytes_of(text)) || CFEqual(text.get(), same_text.get()),
            "it reads back as the same");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * bytes, std::size_t size) {
    std::span const input(bytes, size);
    for (CFOptionFlags options = 0; options < 3; ++options) {
        if (auto const value = read(input, options)) {
            check_round_trip(value.get());
        }
    }
    return 0;
}
