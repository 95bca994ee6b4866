#pragma once

#include "QNRescue/error_domain.hpp"
#include "platform/cf_ownership.hpp"

namespace qnrescue {

// Returns the exception being handled as a tool error: an invalid command line has its own codes,
// anything else is an unknown error with the exception's text, if there is one and memory for it.
// Call it only inside a handler.
error_owner domain_error_of_current_exception() noexcept;

} // namespace qnrescue
