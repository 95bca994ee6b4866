// What the measurements run the tool and its baselines with.
#pragma once

#include "QNRescue/RestorableDeviceHandler.hpp"
#include "benchmarks/line_queue.hpp"

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace benchmarks {

struct file_closer {
    void operator()(std::FILE * file) const { std::fclose(file); }
};
using file_owner = std::unique_ptr<std::FILE, file_closer>;

// Opens a file that swallows what is written, or one that keeps it until it is closed. Throw
// std::system_error.
file_owner open_null_device();
file_owner open_temporary_file();

// Returns all that was written to the file.
std::string content(file_owner const & file);

// Writes each line with one call of the system, as the tool writes to a pipe. Throws
// std::system_error.
class file_sink {
public:
    file_sink(file_owner const & file) // NOLINT(google-explicit-constructor)
        : number(fileno(file.get())) {}

    void write(std::string const & text) const;
    void flush() const {}

private:
    int number;
};

using file_lines = line_queue<file_sink>;

// An output channel whose documents go to the file, with its writer thread.
class output_run {
public:
    explicit output_run(file_owner const & file);
    ~output_run();
    output_run(output_run const &) = delete;
    output_run & operator=(output_run const &) = delete;

    std::shared_ptr<qnrescue::output_str_state> const & state() const { return output; }

    // Returns once everything queued so far is written.
    void finish();

private:
    std::shared_ptr<qnrescue::output_str_state> output;
    std::thread writer;
};

// A notifier on an output channel of its own.
struct notifier_run {
    explicit notifier_run(file_owner const & file = open_null_device())
        : output(file) {}

    output_run output;
    qnrescue::device_notifier_state notifier{output.state(), std::nullopt, std::nullopt};
};

} // namespace benchmarks
