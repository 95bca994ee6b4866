#pragma once

#include "QNRescue/cf_ownership.hpp"

namespace qnrescue {

// The tool error that stands for the std::exception being handled: what the option library says
// about a command line has codes of its own, everything else is an unknown error with the
// exception's text. Call it only inside a handler; an exception of another kind is thrown on.
error_owner domain_error_of_current_exception();

} // namespace qnrescue
