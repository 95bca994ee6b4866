#include "QNRescue/restore_vocabulary.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace {

template <typename Code>
std::string format(int code) {
    return fmt::format("{}", static_cast<Code>(code));
}

TEST(DeviceStateFormatter, PrintsWords) {
    EXPECT_EQ(format<AMRestorableDeviceState>(0), "Unknown");
    EXPECT_EQ(format<AMRestorableDeviceState>(1), "DFU");
    EXPECT_EQ(format<AMRestorableDeviceState>(2), "Recovery");
    EXPECT_EQ(format<AMRestorableDeviceState>(3), "RestoreOS");
    EXPECT_EQ(format<AMRestorableDeviceState>(4), "BootedOS");
}

TEST(DeviceStateFormatter, PrintsOtherNumbers) {
    EXPECT_EQ(format<AMRestorableDeviceState>(5), "<invalid device state 5>");
    EXPECT_EQ(format<AMRestorableDeviceState>(7), "<invalid device state 7>");
    EXPECT_EQ(format<AMRestorableDeviceState>(-1), "<invalid device state -1>");
    EXPECT_EQ(format<AMRestorableDeviceState>(std::numeric_limits<int>::min()),
              "<invalid device state -2147483648>");
}

TEST(NotificationTypeFormatter, PrintsWordsAndOtherNumbers) {
    EXPECT_EQ(format<AMRestorableDeviceNotificationType>(0), "connected");
    EXPECT_EQ(format<AMRestorableDeviceNotificationType>(1), "disconnected");
    EXPECT_EQ(format<AMRestorableDeviceNotificationType>(2), "<invalid notification type 2>");
    EXPECT_EQ(format<AMRestorableDeviceNotificationType>(-1), "<invalid notification type -1>");
}

TEST(ErrorFormatter, PrintsTheTextOfACode) {
    EXPECT_EQ(fmt::formatter<AMRError>::get_error_str(static_cast<AMRError>(1)), "Bad argument");
    EXPECT_EQ(format<AMRError>(1), "Bad argument");
    EXPECT_EQ(format<AMRError>(3600), "HTTP internal server error");
}

TEST(ErrorFormatter, PrintsCodesWithoutAText) {
    EXPECT_EQ(fmt::formatter<AMRError>::get_error_str(static_cast<AMRError>(65)),
              "Unknown error 65");
    EXPECT_EQ(format<AMRError>(0), "Unknown error 0");
    EXPECT_EQ(format<AMRError>(-402653093), "Unknown error -402653093");
}

TEST(ErrorFormatter, FallsBackForWholeTextsOnly) {
    EXPECT_EQ(fmt::formatter<AMRError>::get_error_str(static_cast<AMRError>(1013)),
              "Unrecognized bbupdater error");
}

TEST(OperationFormatter, PrintsTheTextOfACode) {
    EXPECT_EQ(format<qnrescue::operation_type>(2), "DFU download");
    EXPECT_EQ(format<qnrescue::operation_type>(213), "Regenerating dyld shared cache");
}

TEST(OperationFormatter, PrintsCodesWithoutAText) {
    EXPECT_EQ(format<qnrescue::operation_type>(150), "Unknown operation 150");
    EXPECT_EQ(format<qnrescue::operation_type>(0), "Unknown operation 0");
    EXPECT_EQ(format<qnrescue::operation_type>(-1), "Unknown operation -1");
}

TEST(Formatters, TakeTheSpecificationOfAString) {
    EXPECT_EQ(fmt::format("{:*^7}", kAMRestorableDeviceStateDFU), "**DFU**");
    EXPECT_EQ(fmt::format("{:>12}", kAMRestorableDeviceConnected), "   connected");
    EXPECT_EQ(fmt::format("{:.3}", kAMRestorableDeviceDisconnected), "dis");
    EXPECT_EQ(fmt::format("{:<14}|", static_cast<AMRError>(1)), "Bad argument  |");
    EXPECT_EQ(fmt::format("{:>14.7}", static_cast<AMRError>(65)), "       Unknown");
    EXPECT_EQ(fmt::format("{:-<9}", qnrescue::operation_type{9}), "Booting--");
    EXPECT_EQ(fmt::format("{:-<24}", qnrescue::operation_type{150}), "Unknown operation 150---");
}

} // namespace
