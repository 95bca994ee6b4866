// How much a test does that runs longer where the environment asks for it.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <string>

namespace tests {

// The share of the whole that this run does: QNRESCUE_STRESS_PERCENT, 5 if unset.
inline int share_of(int whole) {
    auto const text = std::getenv("QNRESCUE_STRESS_PERCENT");
    int const percent = text == nullptr ? 5 : std::stoi(text);
    return std::max(1, static_cast<int>(static_cast<long long>(whole) * percent / 100));
}

} // namespace tests
