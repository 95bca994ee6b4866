// What the measurements run the tool with.
#pragma once

#include "QNRescue/RestorableDeviceHandler.hpp"

#include <memory>
#include <optional>
#include <thread>

namespace benchmarks {

// The descriptor of a file that swallows what is written. Owned by the caller.
int open_null_device();

// An output channel whose documents go to the null device, with its writer thread.
class output_run {
public:
    output_run();
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
    output_run output;
    qnrescue::device_notifier_state notifier{output.state(), std::nullopt, std::nullopt};
};

} // namespace benchmarks
