#pragma once

#include <boost/asio/io_context.hpp>

namespace QN {

// The executor of handles that are only ever used synchronously; nothing runs its context.
class non_async_executor {
public:
    // One for the process, made by the first call and never destroyed.
    static boost::asio::io_context & context();
};

} // namespace QN
