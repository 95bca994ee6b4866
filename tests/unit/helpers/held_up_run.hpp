// Shows which locks are held while something is printed.
#pragma once

#include "QNRescue/RestorableDeviceHandler.hpp"
#include "tests/unit/helpers/output_capture.hpp"

#include <chrono>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>

namespace tests {

// A notifier whose lines nobody takes from this text on. Who prints one then waits, and shows which
// locks it holds.
struct held_up_run {
    explicit held_up_run(std::string_view text)
        : reader(text) {
        std::cerr.rdbuf(&reader);
        output->set_debug(true);
        writing = std::async(std::launch::async, [this] { output->loop(); });
        notifier.emplace(output, std::nullopt, std::nullopt);
    }

    void wait_until_held_up() { reader.reached.get_future().wait(); }

    // Returns whether somebody takes the lock of the table within half a minute and keeps it.
    bool table_stays_locked() {
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!table_is_locked() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return table_is_locked();
    }

    void let_go() { reader.let_go.set_value(); }

    ~held_up_run() {
        notifier.reset();
        output->quit();
        writing.wait();
    }

    captured_streams const streams;
    slow_reader reader;
    std::shared_ptr<qnrescue::output_str_state> const output =
        std::make_shared<qnrescue::output_str_state>(std::nullopt);
    std::future<void> writing;
    std::optional<qnrescue::device_notifier_state> notifier;

private:
    bool table_is_locked() {
        return !std::unique_lock(notifier->mutex, std::try_to_lock).owns_lock();
    }
};

} // namespace tests
