#pragma once

#include "QNRescue/error_domain.hpp"
#include "platform/cf_ownership.hpp"

namespace qnrescue {

// Returns the tool error that stands for the exception being handled: what the option library says
// about a command line has codes of its own, everything else is an unknown error with the
// exception's text, if it has one that can be had. Call it only inside a handler.
error_owner domain_error_of_current_exception() noexcept;

} // namespace qnrescue
