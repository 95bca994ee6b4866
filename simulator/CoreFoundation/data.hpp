// Data inside.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"
#include "simulator/CoreFoundation/strings.hpp"

#include <cstdlib>
#include <memory>
#include <span>

// The bytes follow the object, or belong to somebody else, or are freed with the object.
struct __CFData : cf::Object {
    static cf::Type const class_type;

    UInt8 const * bytes;
    CFIndex length;
    bool frees_bytes;
    bool is_mutable;

    __CFData(UInt8 const * its_bytes, CFIndex its_length, bool frees, cf::Mutability mutability)
        : Object{class_type}
        , bytes{its_bytes}
        , length{its_length}
        , frees_bytes{frees}
        , is_mutable{mutability == cf::Mutability::is_mutable} {}
};

namespace cf {

// New data, owned by the caller. Mutable data has a byte pointer even if it is empty.
CFDataRef create_data(std::span<UInt8 const> bytes, Mutability mutability = Mutability::immutable);

// New data whose bytes the caller still has to write.
struct WritableData {
    CFDataRef data;
    UInt8 * bytes;
};
WritableData create_data_to_fill(std::size_t length, Mutability mutability = Mutability::immutable);

// Bytes that are to become data, of which there will be no more than was said before.
class DataBytes {
public:
    explicit DataBytes(std::size_t most);

    void append(UInt8 byte) { bytes_[size_++] = byte; }
    std::size_t size() const { return size_; }

    // No more memory than these bytes need; the caller has to free it.
    UInt8 * release();

private:
    struct Free {
        void operator()(UInt8 * bytes) const { std::free(bytes); }
    };

    std::unique_ptr<UInt8[], Free> bytes_;
    std::size_t size_ = 0;
};

// New data, owned by the caller, which has the memory of the bytes.
CFDataRef create_data(DataBytes bytes, Mutability mutability);

inline std::span<UInt8 const> bytes_of(CFDataRef data) {
    return {data->bytes, static_cast<std::size_t>(data->length)};
}

} // namespace cf
