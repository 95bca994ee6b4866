// What an output channel writes to standard output and standard error.
#pragma once

#include "QNRescue/output_state.hpp"
#include "tests/unit/helpers/objects.hpp"

#include <atomic>
#include <condition_variable>
#include <future>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <streambuf>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tests {

// Collects what is written to it, by any thread.
class shared_buffer : public std::streambuf {
public:
    std::string text() const;
    // Returns whether the text is written within half a minute.
    bool wait_for(std::string_view sought) const;
    int flush_count() const { return flushes; }

protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(char const * characters, std::streamsize count) override;
    int sync() override;

private:
    mutable std::mutex mutex;
    mutable std::condition_variable written;
    std::string collected;
    std::atomic<int> flushes = 0;
};

// Takes all that is written to it up to this text, and then nothing until it is let go.
class slow_reader : public std::streambuf {
public:
    explicit slow_reader(std::string_view text = "")
        : sought(text) {}

    std::promise<void> reached;
    std::promise<void> let_go;

protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(char const * characters, std::streamsize count) override;

private:
    std::string const sought;
    bool held = false;
};

// Replaces the standard streams, set up as the program sets them up, as long as it lives. One
// at a time.
class captured_streams {
public:
    captured_streams();
    ~captured_streams();
    captured_streams(captured_streams const &) = delete;
    captured_streams & operator=(captured_streams const &) = delete;

    shared_buffer out;
    shared_buffer err;

private:
    std::streambuf * const real_out;
    std::streambuf * const real_err;
    std::ostream * const tied_to_err;
    std::ios::fmtflags const err_flags;
};

// A document as it left the channel.
struct document {
    std::string type;
    cf_owner<CFTypeRef> value;
};

// Takes the text of standard output apart: complete XML property lists with exactly the keys Type
// and Value, each followed by one more line feed. Throws std::invalid_argument where it is not so.
std::vector<document> parse_documents(std::string_view text);

std::vector<std::string> lines_of(std::string_view text);

// An output channel with its writer thread, debug output on.
class output_capture {
public:
    explicit output_capture(bool debug = true);
    ~output_capture();

    std::shared_ptr<qnrescue::output_str_state> const & state() const { return output; }

    // Lets the writer end; whatever the channel has been given is written by then.
    void finish();
    // These three finish.
    std::string out();
    std::vector<document> documents();
    std::vector<std::string> debug_lines();

    captured_streams streams;

private:
    std::shared_ptr<qnrescue::output_str_state> output;
    std::thread writer;
};

} // namespace tests
