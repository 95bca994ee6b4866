#include "support/file/read_exactly.hpp"

#include "support/file/errc.hpp"
#include "tests/unit/helpers/file_fixture.hpp"

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>

#include <string>
#include <vector>

namespace {

using boost::system::error_code;
using file_tests::as_text;
using file_tests::pattern;
using QN::file::errc;

// Has only so much at hand for each request, and keeps the sizes that it is asked for.
struct recording_stream {
    std::string content;
    std::size_t at_hand;
    std::vector<std::size_t> requests = {};
    std::size_t position = 0;

    template <typename Buffers>
    std::size_t read_some(Buffers const & buffers, error_code & ec) {
        requests.push_back(boost::asio::buffer_size(buffers));
        auto const rest = boost::asio::buffer(content) + position;
        auto const size = boost::asio::buffer_copy(buffers, rest, at_hand);
        position += size;
        ec = size == 0 ? error_code(boost::asio::error::eof) : error_code();
        return size;
    }
};

struct requested_sizes {
    std::size_t size;
    std::size_t at_hand;
    std::vector<std::size_t> requests;
};

TEST(read_exactly, asks_for_no_more_than_64_kibibytes_at_once) {
    std::vector<requested_sizes> const rows{
        {0, 65536, {}},
        {1, 65536, {1}},
        {65535, 65536, {65535}},
        {65536, 65536, {65536}},
        {65537, 65536, {65536, 1}},
        {200000, 1000000, {65536, 65536, 65536, 3392}},
        {150000, 50000, {65536, 65536, 50000}},
    };
    for (auto const & [size, at_hand, requests] : rows) {
        recording_stream stream{pattern(size), at_hand};
        std::vector<std::uint8_t> bytes(size);
        error_code ec = errc::too_large;
        QN::file::detail::read_exactly(stream, bytes, ec);
        EXPECT_FALSE(ec.failed());
        EXPECT_EQ(stream.requests, requests);
        EXPECT_TRUE(as_text(bytes) == stream.content) << size;
    }
}

TEST(read_exactly, asks_for_nothing_after_a_failure) {
    recording_stream stream{"content", 4};
    std::vector<std::uint8_t> bytes(9);
    error_code ec;
    QN::file::detail::read_exactly(stream, bytes, ec);
    EXPECT_EQ(ec, boost::asio::error::eof);
    EXPECT_EQ(stream.requests, (std::vector<std::size_t>{9, 5, 2}));
    EXPECT_EQ(as_text(bytes), std::string("content\0\0", 9));
}

} // namespace
