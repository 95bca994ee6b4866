#include "QNRescue/wait_clock.hpp"

#include <thread>

namespace qnrescue {

namespace {

class steady_clock final : public wait_clock {
public:
    time_point now() const override { return std::chrono::steady_clock::now(); }

    void sleep_until(time_point end) override {
        while (now() < end) { // a sleep may end a little early
            std::this_thread::sleep_until(end);
        }
    }

    void wait_until(std::condition_variable & condition, std::unique_lock<std::mutex> & lock,
                    time_point end) override {
        condition.wait_until(lock, end);
    }

    bool wait_until(std::future<void> const & future, time_point end) override {
        return future.wait_until(end) == std::future_status::ready;
    }
};

} // namespace

wait_clock & steady_wait_clock() {
    static steady_clock clock; // has nothing to destroy: it may be used while the process ends
    return clock;
}

} // namespace qnrescue
