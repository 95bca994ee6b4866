#pragma once

#include <boost/asio/io_context.hpp>

namespace QN {

// The executor of handles that are only used synchronously; nothing runs its context.
class non_async_executor {
public:
    // Returns the one of the process, which the first call creates and nothing destroys.
    static boost::asio::io_context & context();
};

} // namespace QN
