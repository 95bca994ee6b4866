// How data is stored.
#pragma once

#include "simulator/CoreFoundation/runtime.hpp"
#include "simulator/CoreFoundation/strings.hpp"

#include <cstdlib>
#include <memory>
#include <span>

// The bytes follow the object, or belong to the caller, or are freed with the object.
struct __CFData : cf::object {
    static cf::object_type const class_type;

    UInt8 const * bytes;
    CFIndex length;
    bool frees_bytes;
    bool is_mutable;

    __CFData(UInt8 const * its_bytes, CFIndex its_length, bool frees, cf::mutability wanted)
        : object{class_type}
        , bytes{its_bytes}
        , length{its_length}
        , frees_bytes{frees}
        , is_mutable{wanted == cf::mutability::is_mutable} {}
};

namespace cf {

// Creates data, owned by the caller. Mutable data has a byte pointer even if it is empty.
CFDataRef create_data(std::span<UInt8 const> bytes, mutability wanted = mutability::immutable);

// New data whose bytes the caller still has to write.
struct writable_data {
    CFDataRef data;
    UInt8 * bytes;
};
writable_data create_data_to_fill(std::size_t length, mutability wanted = mutability::immutable);

// Bytes that become data, up to a number given before.
class data_bytes {
public:
    explicit data_bytes(std::size_t most);

    void append(UInt8 byte) { memory[used++] = byte; }
    std::size_t size() const { return used; }

    // Returns the bytes in no more memory than they need, which the caller frees.
    UInt8 * release();

private:
    struct free {
        void operator()(UInt8 * bytes) const { std::free(bytes); }
    };

    std::unique_ptr<UInt8[], free> memory;
    std::size_t used = 0;
};

// Creates data, owned by the caller, in the memory of the bytes.
CFDataRef create_data(data_bytes bytes, mutability wanted);

inline std::span<UInt8 const> bytes_of(CFDataRef data) {
    return {data->bytes, static_cast<std::size_t>(data->length)};
}

} // namespace cf
