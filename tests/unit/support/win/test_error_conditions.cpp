#include "support/win/error_category.hpp"

#include <gtest/gtest.h>

#include <winsock2.h>

#include <map>
#include <optional>
#include <system_error>

namespace {

using std::errc;

std::optional<errc> generic(std::error_condition const & condition) {
    if (condition.category() != std::generic_category()) {
        return std::nullopt;
    }
    return static_cast<errc>(condition.value());
}

std::optional<errc> ours(int code) {
    return generic(QN::win::win32_category().default_error_condition(code));
}

struct example {
    int code;
    errc condition;
};

constexpr example examples[] = {
    {5, errc::permission_denied},
    {12, errc::permission_denied},
    {32, errc::permission_denied},
    {65, errc::permission_denied},
    {2, errc::no_such_file_or_directory},
    {3, errc::no_such_file_or_directory},
    {51, errc::no_such_file_or_directory},
    {53, errc::no_such_file_or_directory},
    {80, errc::file_exists},
    {183, errc::file_exists},
    {13, errc::invalid_argument},
    {87, errc::invalid_argument},
    {131, errc::invalid_argument},
    {109, errc::broken_pipe},
    {10004, errc::interrupted},
    {10013, errc::permission_denied},
    {10048, errc::address_in_use},
    {10054, errc::connection_reset},
    {10060, errc::timed_out},
    {10061, errc::connection_refused},
    {10112, errc::connection_refused},
};

TEST(win32_conditions, are_the_known_ones) {
    for (auto const & [code, condition] : examples) {
        EXPECT_EQ(ours(code), condition) << code;
        EXPECT_TRUE(QN::win::make_error_code(code) == condition) << code;
    }
}

TEST(win32_conditions, stay_in_the_category_without_a_counterpart) {
    for (int const code : {7, 31, 99999, 10000, 10113, -1}) {
        EXPECT_EQ(QN::win::win32_category().default_error_condition(code),
                  std::error_condition(code, QN::win::win32_category()));
    }
}

#ifdef __GLIBCXX__

std::optional<errc> of_the_standard_library(int code) {
    return generic(std::system_category().default_error_condition(code));
}

struct difference {
    int code;
    std::optional<errc> theirs;
    errc ours;
    char const * why;
};

constexpr std::nullopt_t none = std::nullopt;
constexpr auto in_use = "who finds a file in use is refused access to it, as with an open by name";
constexpr auto refused = "a refusal, for which the standard library has no row";
constexpr auto missing = "a missing network place, for which the standard library has no row";
constexpr auto no_row = "has a plain counterpart, for which the standard library has no row";
constexpr auto sockets = "the standard library has no rows for sockets";

// Every number for which this mapping and that of the standard library differ.
const difference differences[] = {
    {ERROR_INVALID_FUNCTION, none, errc::function_not_supported, no_row},
    {ERROR_INVALID_ACCESS, none, errc::permission_denied, refused},
    {ERROR_CURRENT_DIRECTORY, none, errc::permission_denied, refused},
    {ERROR_NOT_READY, none, errc::resource_unavailable_try_again, no_row},
    {ERROR_WRITE_FAULT, none, errc::io_error, no_row},
    {ERROR_READ_FAULT, none, errc::io_error, no_row},
    {ERROR_SHARING_VIOLATION, errc::device_or_resource_busy, errc::permission_denied, in_use},
    {ERROR_REM_NOT_LIST, none, errc::no_such_file_or_directory, missing},
    {ERROR_NETWORK_ACCESS_DENIED, none, errc::permission_denied, refused},
    {ERROR_BUFFER_OVERFLOW, none, errc::filename_too_long, no_row},
    {ERROR_BUSY_DRIVE, none, errc::device_or_resource_busy, no_row},
    {ERROR_LOCKED, none, errc::no_lock_available, no_row},
    {ERROR_OPERATION_ABORTED, none, errc::operation_canceled, no_row},
    {ERROR_CANTOPEN, none, errc::io_error, no_row},
    {ERROR_CANTREAD, none, errc::io_error, no_row},
    {ERROR_CANTWRITE, none, errc::io_error, no_row},
    {ERROR_CONNECTION_ABORTED, none, errc::connection_aborted, no_row},
    {ERROR_RETRY, none, errc::resource_unavailable_try_again, no_row},
    {ERROR_REPARSE_TAG_INVALID, none, errc::invalid_argument, no_row},
    {WSAEINTR, none, errc::interrupted, sockets},
    {WSAEBADF, none, errc::bad_file_descriptor, sockets},
    {WSAEACCES, none, errc::permission_denied, sockets},
    {WSAEFAULT, none, errc::bad_address, sockets},
    {WSAEINVAL, none, errc::invalid_argument, sockets},
    {WSAEMFILE, none, errc::too_many_files_open, sockets},
    {WSAEWOULDBLOCK, none, errc::operation_would_block, sockets},
    {WSAEINPROGRESS, none, errc::operation_in_progress, sockets},
    {WSAEALREADY, none, errc::connection_already_in_progress, sockets},
    {WSAENOTSOCK, none, errc::not_a_socket, sockets},
    {WSAEDESTADDRREQ, none, errc::destination_address_required, sockets},
    {WSAEMSGSIZE, none, errc::message_size, sockets},
    {WSAEPROTOTYPE, none, errc::wrong_protocol_type, sockets},
    {WSAENOPROTOOPT, none, errc::no_protocol_option, sockets},
    {WSAEPROTONOSUPPORT, none, errc::protocol_not_supported, sockets},
    {WSAESOCKTNOSUPPORT, none, errc::not_supported, sockets},
    {WSAEOPNOTSUPP, none, errc::operation_not_supported, sockets},
    {WSAEPFNOSUPPORT, none, errc::address_family_not_supported, sockets},
    {WSAEAFNOSUPPORT, none, errc::address_family_not_supported, sockets},
    {WSAEADDRINUSE, none, errc::address_in_use, sockets},
    {WSAEADDRNOTAVAIL, none, errc::address_not_available, sockets},
    {WSAENETDOWN, none, errc::network_down, sockets},
    {WSAENETUNREACH, none, errc::network_unreachable, sockets},
    {WSAENETRESET, none, errc::network_reset, sockets},
    {WSAECONNABORTED, none, errc::connection_aborted, sockets},
    {WSAECONNRESET, none, errc::connection_reset, sockets},
    {WSAENOBUFS, none, errc::no_buffer_space, sockets},
    {WSAEISCONN, none, errc::already_connected, sockets},
    {WSAENOTCONN, none, errc::not_connected, sockets},
    {WSAESHUTDOWN, none, errc::broken_pipe, sockets},
    {WSAETIMEDOUT, none, errc::timed_out, sockets},
    {WSAECONNREFUSED, none, errc::connection_refused, sockets},
    {WSAELOOP, none, errc::too_many_symbolic_link_levels, sockets},
    {WSAENAMETOOLONG, none, errc::filename_too_long, sockets},
    {WSAEHOSTDOWN, none, errc::host_unreachable, sockets},
    {WSAEHOSTUNREACH, none, errc::host_unreachable, sockets},
    {WSAENOTEMPTY, none, errc::directory_not_empty, sockets},
    {WSAEPROCLIM, none, errc::resource_unavailable_try_again, sockets},
    {WSAECANCELLED, none, errc::operation_canceled, sockets},
    {WSA_E_CANCELLED, none, errc::operation_canceled, sockets},
    {WSAEREFUSED, none, errc::connection_refused, sockets},
};

TEST(win32_conditions, differ_from_the_standard_library_only_where_said) {
    std::map<int, difference> expected;
    for (auto const & row : differences) {
        expected.emplace(row.code, row);
    }
    for (int code = -70000; code <= 70000; ++code) {
        auto const theirs = of_the_standard_library(code);
        if (auto const found = expected.find(code); found != expected.end()) {
            EXPECT_EQ(theirs, found->second.theirs) << code;
            EXPECT_EQ(ours(code), found->second.ours) << code << ": " << found->second.why;
            EXPECT_NE(theirs, ours(code)) << code;
        } else {
            EXPECT_EQ(ours(code), theirs) << code;
        }
    }
    EXPECT_EQ(expected.size(), std::size(differences));
}

#endif

} // namespace
