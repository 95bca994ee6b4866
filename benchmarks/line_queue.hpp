// The least with which threads pass lines to one that writes them.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace benchmarks {

// Locks and wakes as the tool's output channel does: each line is pushed under the lock and wakes
// the writer thread after it; the writer holds the lock while it writes a batch. Debug lines wake
// it too and are dropped. The sink writes a line with write(text), and flush() ends a batch.
template <typename Sink>
class line_queue {
public:
    explicit line_queue(Sink destination = {})
        : sink(std::move(destination))
        , writer(&line_queue::loop, this) {}
    ~line_queue() { finish(); }
    line_queue(line_queue const &) = delete;
    line_queue & operator=(line_queue const &) = delete;

    void print(std::string text) { push({std::move(text), false}); }
    void print_debug(std::string text) { push({std::move(text), true}); }

    // Returns once everything queued so far is written.
    void finish() {
        if (!writer.joinable()) {
            return;
        }
        {
            std::lock_guard const lock(mutex);
            finishing = true;
        }
        ready.notify_one();
        writer.join();
    }

private:
    struct line {
        std::string text;
        bool is_debug;
    };

    void push(line entry) {
        {
            std::lock_guard const lock(mutex);
            queue.push_back(std::move(entry));
        }
        ready.notify_one();
    }

    void loop() {
        std::unique_lock lock(mutex);
        do {
            ready.wait(lock, [this] { return finishing || !queue.empty(); });
            for (auto const & entry : queue) {
                if (!entry.is_debug) {
                    sink.write(entry.text);
                }
            }
            sink.flush();
            queue.clear();
        } while (!finishing);
    }

    Sink sink;
    std::mutex mutex; // guards the queue and finishing
    std::vector<line> queue;
    bool finishing = false;
    std::condition_variable ready;
    std::thread writer; // the last member: it uses all others
};

} // namespace benchmarks
