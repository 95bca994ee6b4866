#pragma once

#include "platform/cf_ownership.hpp"

#include <boost/asio/any_io_executor.hpp>
#ifdef _WIN32
#include <boost/asio/windows/basic_stream_handle.hpp>
#else
#include <boost/asio/posix/basic_stream_descriptor.hpp>
#endif
#include <boost/system/error_code.hpp>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace qnrescue {

struct start_options;

#ifdef _WIN32
using pipe_handle = boost::asio::windows::basic_stream_handle<boost::asio::any_io_executor>;
#else
using pipe_handle = boost::asio::posix::basic_stream_descriptor<boost::asio::any_io_executor>;
#endif

// A document ready for printing: its type name in UTF-8 and its value.
struct message_type {
    std::string type;
    cf_owner<CFTypeRef> value;
};

// Writes all output of the tool. Threads queue text; one output thread runs loop() and writes each
// entry and a line feed to standard output or the pipe, debug lines to standard error.
class output_str_state {
public:
    // Writes documents to the sink, if there is one, and closes it with this object.
    explicit output_str_state(std::optional<pipe_handle> sink);

    // Turns debug lines on or off, including those that are queued already.
    void set_debug(bool on);

    // Queues a text, to which loop() adds a line feed. Drops it and throws
    // std::bad_alloc if memory is short. A text queued after loop() has returned is never written.
    void print(std::string text);
    void print_debug(std::string text);

    // Queues the XML property list {Type, Value}. Queues a debug line instead where the value has
    // no such form.
    void print_value(CFStringRef type, CFTypeRef value);
    void print_value(message_type const & message);

    // Queues the error as a document of type "InternalError". The error is borrowed.
    void print_formatted_error(CFErrorRef error);

    // Lets loop() return once everything queued so far is written.
    void quit();

    // Writes until quit(). Throws boost::system::system_error where the pipe cannot be written, but
    // writes the debug lines of that batch first.
    void loop() &;

private:
    struct line {
        std::string text;
        bool is_debug;
    };

    void enqueue(line entry);
    void write_batch();
    void write(line const & entry, boost::system::error_code & error);

    std::optional<pipe_handle> pipe;
    std::mutex mutex; // guards everything below
    std::vector<line> queue;
    bool debug = false;
    bool quitting = false;
    std::condition_variable ready;
};

// Returns the output channel that the options ask for. Does not test the pipe: an invalid handle
// shows when the first entry is written.
std::shared_ptr<output_str_state> make_output_state(boost::asio::any_io_executor executor,
                                                    start_options const & options);

} // namespace qnrescue
