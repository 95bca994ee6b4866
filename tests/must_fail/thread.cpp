#include <gtest/gtest.h>

#include <thread>

TEST(MustFail, DataRace) {
    int number = 0;
    std::thread other([&] { ++number; });
    ++number;
    other.join();
}
