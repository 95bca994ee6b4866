// How much a stress test does, and how it watches what comes out.
#pragma once

#include "QNRescue/output_state.hpp"
#include "QNRescue/start_options.hpp"
#include "tests/stress/share.hpp"
#include "tests/unit/helpers/overlapped_pipe.hpp"

#include <boost/asio/io_context.hpp>

#include <functional>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace tests {

// Replaces the buffer of a stream and passes on each entry that the terminator ends, without
// it, so that a long run needs no memory.
class entry_watcher : public std::streambuf {
public:
    using action = std::function<void(std::string_view)>;

    entry_watcher(std::ostream & watched, std::string_view ending, action on_entry)
        : stream(watched)
        , former(stream.rdbuf(this))
        , terminator(ending)
        , act(std::move(on_entry)) {}
    ~entry_watcher() override { stream.rdbuf(former); }
    entry_watcher(entry_watcher const &) = delete;
    entry_watcher & operator=(entry_watcher const &) = delete;

    // Returns what has come after the last whole entry.
    std::string const & rest() const { return pending; }

protected:
    int_type overflow(int_type character) override {
        char const one = traits_type::to_char_type(character);
        xsputn(&one, 1);
        return traits_type::not_eof(character);
    }

    std::streamsize xsputn(char const * characters, std::streamsize count) override {
        pending.append(characters, static_cast<std::size_t>(count));
        for (auto end = pending.find(terminator); end != std::string::npos;
             end = pending.find(terminator)) {
            act(std::string_view(pending).substr(0, end));
            pending.erase(0, end + terminator.size());
        }
        return count;
    }

private:
    std::ostream & stream;
    std::streambuf * const former;
    std::string const terminator;
    action const act;
    std::string pending;
};

// The thread that writes for a channel, as the tool's main starts it.
class channel_writer {
public:
    explicit channel_writer(qnrescue::output_str_state & state)
        : channel(state)
        , thread(&qnrescue::output_str_state::loop, std::ref(state)) {}
    ~channel_writer() { finish(); }
    channel_writer(channel_writer const &) = delete;
    channel_writer & operator=(channel_writer const &) = delete;

    // Ends the channel, after everything queued has been written.
    void finish() {
        if (thread.joinable()) {
            channel.quit();
            thread.join();
        }
    }

private:
    qnrescue::output_str_state & channel;
    std::thread thread;
};

// Runs the action with the channel of a pipe and returns what has come through the pipe.
template <typename Action>
std::string text_through_pipe(Action const & action) {
    overlapped_pipe pipe;
    boost::asio::io_context context;
    qnrescue::start_options options;
    options.output_pipe = pipe.writing_end();
    auto output = qnrescue::make_output_state(context.get_executor(), options);
    pipe.start_reading();
    action(output);
    output.reset();
    return pipe.read_to_end();
}

// Threads that all do the same, each with its number.
class thread_team {
public:
    template <typename Action>
    thread_team(int size, Action const & action) {
        for (int number = 0; number < size; ++number) {
            threads.emplace_back(action, number);
        }
    }
    ~thread_team() { join(); }
    thread_team(thread_team const &) = delete;
    thread_team & operator=(thread_team const &) = delete;

    void join() {
        for (auto & thread : threads) {
            if (thread.joinable()) {
                thread.join();
            }
        }
    }

private:
    std::vector<std::thread> threads;
};

// Collects what is wrong, as far as anyone would read it.
class complaints {
public:
    void add(std::string text) {
        if (texts.size() < 10) {
            texts.push_back(std::move(text));
        }
    }
    std::vector<std::string> const & all() const { return texts; }

private:
    std::vector<std::string> texts;
};

} // namespace tests
