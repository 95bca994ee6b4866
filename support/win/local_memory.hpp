#pragma once

#include <windows.h>

#include <memory>

namespace QN::win::detail {

struct local_free {
    void operator()(void * memory) const noexcept { LocalFree(memory); }
};

// Owns what the system allocated for its caller with LocalAlloc.
template <typename Element>
using local_memory = std::unique_ptr<Element[], local_free>;

} // namespace QN::win::detail
