#include "QNRescue/restore_options_file.hpp"

#include "QNRescue/error_domain.hpp"
#include "support/file/readable_file.hpp"

#include <cstdint>
#include <span>
#include <stdexcept>

namespace qnrescue {

namespace {

constexpr std::uint32_t size_limit = 1u << 30; // bytes

// The bytes are only looked at; the dictionary keeps nothing of them.
cf_owner<CFDictionaryRef> parse_dictionary(std::span<std::uint8_t const> bytes,
                                           data_factory wrap_bytes) {
    auto const data = adopt(wrap_bytes(kCFAllocatorDefault, bytes.data(),
                                       static_cast<CFIndex>(bytes.size()), kCFAllocatorNull));
    if (!data) {
        throw std::runtime_error("Bad alloc");
    }
    auto const root =
        adopt(CFPropertyListCreateWithData(kCFAllocatorDefault, data.get(), 0, nullptr, nullptr));
    if (!is_a(root.get(), CFDictionaryGetTypeID())) {
        throw std::invalid_argument("Invalid format");
    }
    return retain(static_cast<CFDictionaryRef>(root.get()));
}

} // namespace

cf_owner<CFDictionaryRef> read_restore_options(QN::filesystem::path const & path,
                                               data_factory wrap_bytes) {
    try {
        QN::file::readable_file file(path);
        auto const bytes = file.read_whole_file(size_limit);
        if (bytes.empty()) {
            throw std::invalid_argument("Empty file");
        }
        return parse_dictionary(bytes, wrap_bytes);
    } catch (std::exception const & exception) {
        throw_error(Error::read_error, "Cannot open file '{}' - {}", QN::path_to_utf8(path),
                    exception.what());
    }
}

} // namespace qnrescue
