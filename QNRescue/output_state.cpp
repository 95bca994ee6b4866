#include "QNRescue/output_state.hpp"

#include "QNRescue/start_options.hpp"

#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>
#include <boost/system/system_error.hpp>

#include <array>
#include <cstdint>
#include <iostream>
#include <utility>

namespace qnrescue {

namespace {

pipe_handle wrap(boost::asio::any_io_executor const & executor, std::int32_t number) {
    pipe_handle pipe(executor);
#ifdef _WIN32
    auto const native = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(number));
    // A process that inherited it would keep the reader waiting.
    SetHandleInformation(native, HANDLE_FLAG_INHERIT, 0);
#else
    auto const native = number;
#endif
    // A handle that is refused here leaves the pipe unopened, and the first write to it fails.
    boost::system::error_code ignored;
    pipe.assign(native, ignored);
    return pipe;
}

} // namespace

output_str_state::output_str_state(std::optional<pipe_handle> sink)
    : pipe(std::move(sink)) {}

void output_str_state::set_debug(bool on) {
    std::lock_guard const lock(mutex);
    debug = on;
}

void output_str_state::print(std::string text) {
    enqueue({std::move(text), false});
}

void output_str_state::print_debug(std::string text) {
    enqueue({std::move(text), true});
}

void output_str_state::enqueue(line entry) {
    {
        std::lock_guard const lock(mutex);
        queue.push_back(std::move(entry));
    }
    ready.notify_one();
}

void output_str_state::quit() {
    {
        std::lock_guard const lock(mutex);
        quitting = true;
    }
    ready.notify_one();
}

void output_str_state::loop() & {
    std::unique_lock lock(mutex);
    for (;;) {
        ready.wait(lock, [this] { return quitting || !queue.empty(); });
        if (queue.empty()) {
            return;
        }
        // Written with the lock held, so that producers cannot run ahead of a slow reader.
        write_batch();
        queue.clear();
        if (quitting) {
            return;
        }
    }
}

// Where the process ends because the pipe fails, the debug lines may say why.
void output_str_state::write_batch() {
    boost::system::error_code error;
    for (auto const & entry : queue) {
        if (entry.is_debug || !error) {
            write(entry, error);
        }
    }
    std::cout.flush();
    std::cerr.flush();
    if (error) {
        throw boost::system::system_error(error, "write");
    }
}

void output_str_state::write(line const & entry, boost::system::error_code & error) {
    if (entry.is_debug) {
        if (debug) {
            std::cerr << entry.text << '\n';
        }
    } else if (pipe) {
        std::array<boost::asio::const_buffer, 2> const buffers{
            boost::asio::buffer(entry.text),
            boost::asio::buffer("\n", 1),
        };
        boost::asio::write(*pipe, buffers, error);
    } else {
        std::cout << entry.text << '\n';
    }
}

std::shared_ptr<output_str_state> make_output_state(boost::asio::any_io_executor executor,
                                                    start_options const & options) {
    std::optional<pipe_handle> pipe;
    if (options.output_pipe) {
        pipe = wrap(executor, *options.output_pipe);
    }
    return std::make_shared<output_str_state>(std::move(pipe));
}

} // namespace qnrescue
