#include "support/file/non_async_executor.hpp"

namespace QN {

boost::asio::io_context & non_async_executor::context() {
    static auto & instance = *new boost::asio::io_context;
    return instance;
}

} // namespace QN
