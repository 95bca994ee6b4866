// Fails for any input, so that it shows when a failure is not noticed.
#include "tests/fuzz/require.hpp"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *, std::size_t size) {
    require(size > 16384, "a size that no input has");
    return 0;
}
