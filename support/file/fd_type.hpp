#pragma once

#include "support/file/non_async_executor.hpp"

#ifdef _WIN32
#include "support/file/positioned_handle.hpp"
#else
#include <boost/asio/posix/basic_stream_descriptor.hpp>
#endif

namespace QN::file {

// Owns the system's handle of an open file and keeps the position of reading and writing.
#ifdef _WIN32
using fd_type = positioned_handle;
#else
using fd_type = boost::asio::posix::basic_stream_descriptor<non_async_executor>;
#endif

using native_handle = fd_type::native_handle_type;

} // namespace QN::file
