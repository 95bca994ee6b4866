#include "benchmarks/native/run.hpp"

#include "QNRescue/start_options.hpp"

#include <boost/asio/io_context.hpp>

#include <fcntl.h>

#include <cerrno>
#include <functional>
#include <system_error>

namespace benchmarks {

namespace {

boost::asio::io_context & context() {
    static boost::asio::io_context only;
    return only;
}

std::shared_ptr<qnrescue::output_str_state> make_output() {
    qnrescue::start_options options{};
    options.output_pipe = open_null_device();
    return qnrescue::make_output_state(context().get_executor(), options);
}

} // namespace

int open_null_device() {
    int const descriptor = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "/dev/null");
    }
    return descriptor;
}

output_run::output_run()
    : output(make_output())
    , writer(&qnrescue::output_str_state::loop, std::ref(*output)) {}

output_run::~output_run() {
    finish();
}

void output_run::finish() {
    if (writer.joinable()) {
        output->quit();
        writer.join();
    }
}

} // namespace benchmarks
