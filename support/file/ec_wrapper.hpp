#pragma once

#include <boost/system/error_code.hpp>
#include <boost/system/system_error.hpp>

namespace QN::asio_helpers {

// How a call reports that it failed: into the caller's error code, or, without one, by throwing.
class ec_wrapper {
public:
    ec_wrapper() = default;

    // The caller's error code starts out as success.
    explicit ec_wrapper(boost::system::error_code & code) noexcept
        : target(&code) {
        code.clear();
    }

    // Stores the error, or throws it as a boost::system::system_error with the text that
    // make_context returns. Where in which source file it comes from is left out.
    template <typename MakeContext>
    void report(boost::system::error_code const & error, MakeContext && make_context) const {
        if (target == nullptr) {
            throw boost::system::system_error(error.value(), error.category(), make_context());
        }
        target->assign(error.value(), error.category());
    }

private:
    boost::system::error_code * target = nullptr;
};

} // namespace QN::asio_helpers
