#pragma once

#include <boost/system/error_code.hpp>
#include <boost/system/system_error.hpp>

namespace QN::asio_helpers {

// Reports the failure of a call: in the caller's error code, or by throwing where there is none.
class ec_wrapper {
public:
    ec_wrapper() = default;

    // Sets the caller's error code to success.
    explicit ec_wrapper(boost::system::error_code & code) noexcept
        : target(&code) {
        code.clear();
    }

    // Stores the error, or throws it as a boost::system::system_error with the text that
    // make_context returns. Leaves out the place in the source.
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
