#include "benchmarks/native/run.hpp"

#include "QNRescue/start_options.hpp"

#include <boost/asio/io_context.hpp>

#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <functional>
#include <system_error>

namespace benchmarks {

namespace {

[[noreturn]] void throw_system_error(char const * what) {
    throw std::system_error(errno, std::generic_category(), what);
}

file_owner require_open(std::FILE * file, char const * what) {
    if (file == nullptr) {
        throw_system_error(what);
    }
    return file_owner(file);
}

boost::asio::io_context & context() {
    static boost::asio::io_context only;
    return only;
}

// The channel closes its descriptor.
std::shared_ptr<qnrescue::output_str_state> make_output(file_owner const & file) {
    qnrescue::start_options options{};
    options.output_pipe = dup(fileno(file.get()));
    return qnrescue::make_output_state(context().get_executor(), options);
}

} // namespace

file_owner open_null_device() {
    return require_open(std::fopen("/dev/null", "we"), "/dev/null");
}

file_owner open_temporary_file() {
    return require_open(std::tmpfile(), "a temporary file");
}

std::string content(file_owner const & file) {
    std::string text;
    std::array<char, 4096> part;
    std::rewind(file.get());
    for (;;) {
        auto const size = std::fread(part.data(), 1, part.size(), file.get());
        if (size == 0) {
            return text;
        }
        text.append(part.data(), size);
    }
}

void file_sink::write(std::string const & text) const {
    std::array<iovec, 2> const parts{{
        {const_cast<char *>(text.data()), text.size()},
        {const_cast<char *>("\n"), 1},
    }};
    if (writev(number, parts.data(), static_cast<int>(parts.size())) < 0) {
        throw_system_error("write");
    }
}

output_run::output_run(file_owner const & file)
    : output(make_output(file))
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
