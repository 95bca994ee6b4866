#include <gtest/gtest.h>

#include <memory>

TEST(MustFail, UseAfterFree) {
    auto number = std::make_unique<int>(1);
    int const volatile * const dangling = number.get();
    number.reset();
    [[maybe_unused]] int const read = *dangling;
}
