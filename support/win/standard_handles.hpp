#pragma once

namespace QN::win {

// Keeps processes that are started later from inheriting the standard handles: one that outlives
// this process would keep its readers waiting.
void keep_standard_handles() noexcept;

} // namespace QN::win
