#pragma once

namespace QN::win {

// Keeps the standard handles from the processes that are started from here on: one that outlived
// this process would keep its readers waiting.
void keep_standard_handles() noexcept;

} // namespace QN::win
