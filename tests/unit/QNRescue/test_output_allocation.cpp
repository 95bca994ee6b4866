// An output channel that finds no memory, in a program whose allocations can be made to fail.
#include "tests/unit/QNRescue/output_capture.hpp"
#include "tests/unit/support/allocation_hook.hpp"

#include <gtest/gtest.h>

#include <new>
#include <utility>

namespace {

using namespace qnrescue;

// As large as an entry of the queue.
struct entry {
    std::string text;
    bool is_debug;
};

TEST(OutputChannel, IsAsItWasAfterAnEntryThatFoundNoMemory) {
    constexpr std::size_t queued = 1024; // the queue has to grow for the next entry
    tests::captured_streams streams;
    output_str_state state(std::nullopt);
    std::string expected;
    for (std::size_t i = 0; i < queued; ++i) {
        state.print(std::to_string(i));
        expected += std::to_string(i) + '\n';
    }
    {
        allocation_hook const hook(2 * queued * sizeof(entry), [] { throw std::bad_alloc(); });
        EXPECT_THROW(state.print("lost"), std::bad_alloc);
        EXPECT_TRUE(hook.has_run());
    }
    state.print("next"); // the lock has been given up
    state.quit();
    state.loop();
    EXPECT_EQ(streams.out.text(), expected + "next\n");
}

TEST(OutputChannel, TakesTextsOverWithoutACopy) {
    constexpr std::size_t length = 100000;
    output_str_state state(std::nullopt);
    for (auto const print : {&output_str_state::print, &output_str_state::print_debug}) {
        std::string text(length, 'x');
        allocation_hook const hook(length + 1, [] { ADD_FAILURE() << "room for a copy"; });
        (state.*print)(std::move(text));
    }
}

} // namespace
