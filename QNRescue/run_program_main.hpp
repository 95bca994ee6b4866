#pragma once

#include "QNRescue/output_state.hpp"
#include "QNRescue/start_options.hpp"
#include "QNRescue/wait_clock.hpp"

#include <boost/program_options/options_description.hpp>

#include <memory>

namespace qnrescue {

// Carries out what the options ask for and returns the exit status: 0, or the code of the error,
// which is printed if there is memory for it. Waits by the clock. Throws nothing.
int runProgramMain(start_options const & options,
                   boost::program_options::options_description const & description,
                   std::shared_ptr<output_str_state> output,
                   wait_clock & clock = steady_wait_clock());

} // namespace qnrescue
