#include "QNRescue/exception_errors.hpp"

#include "QNRescue/error_domain.hpp"

#include <boost/program_options/errors.hpp>

#include <fmt/format.h>

#include <exception>

namespace qnrescue {

namespace {

error_owner convert_current_exception() {
    namespace options = boost::program_options;
    try {
        throw;
    } catch (options::multiple_occurrences const & exception) {
        return CreateDomainError(
            Error::bad_command,
            fmt::format("Option '{}' may only be specified once", exception.get_option_name()));
    } catch (options::unknown_option const & exception) {
        return CreateDomainError(Error::bad_command, exception.what());
    } catch (options::invalid_option_value const & exception) {
        return CreateDomainError(Error::invalid_argument, exception.what());
    } catch (std::exception const & exception) {
        return CreateDomainError(Error::unknown, exception.what());
    }
}

} // namespace

error_owner domain_error_of_current_exception() noexcept {
    try {
        return convert_current_exception();
    } catch (...) {
        return CreateDomainError(Error::unknown, "unknown failure"); // a text that needs no memory
    }
}

} // namespace qnrescue
