#include "platform/QNMath/base16.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using bytes = std::vector<std::uint8_t>;

TEST(Base16, EncodesUpperCaseDigits) {
    EXPECT_EQ(QN::Math::base16_encode(bytes{}), "");
    EXPECT_EQ(QN::Math::base16_encode(bytes{0x00, 0x0f, 0xf0, 0xab, 0xff}), "000FF0ABFF");
}

TEST(Base16, DecodesEitherCase) {
    EXPECT_EQ(QN::Math::base16_decode(""), bytes{});
    EXPECT_EQ(QN::Math::base16_decode("000ff0abFF"), (bytes{0x00, 0x0f, 0xf0, 0xab, 0xff}));
}

TEST(Base16, EveryByteSurvives) {
    bytes all(256);
    for (std::size_t i = 0; i < all.size(); ++i) {
        all[i] = static_cast<std::uint8_t>(i);
    }
    EXPECT_EQ(QN::Math::base16_decode(QN::Math::base16_encode(all)), all);
}

TEST(Base16, RefusesWhatIsNoPairOfDigits) {
    EXPECT_THROW(QN::Math::base16_decode("0"), std::exception);
    EXPECT_THROW(QN::Math::base16_decode("0g"), std::exception);
}

} // namespace
