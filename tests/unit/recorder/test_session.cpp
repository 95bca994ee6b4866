// What is made of the calls and callbacks of a session.
#include "recorder/session.hpp"

#include <algorithm>
#include <future>
#include <thread>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

recorder::clock::time_point session_time;

recorder::clock::time_point time_of_session() {
    return session_time;
}

// A session whose time the test sets, and objects.
class RecorderSession : public testing::Test {
protected:
    void pass(recorder::clock::duration span) { session_time += span; }

    void begin() {
        pass(5s);
        recorded.begin_registration();
        recorded.end_registration(1, {});
    }

    // The sentences about what was lost.
    std::vector<std::string> losses() { return recorded.copy().unplayable; }

    void expect_loss(std::string const & part) {
        auto const sentences = losses();
        EXPECT_TRUE(std::ranges::any_of(
            sentences,
            [&](std::string const & each) { return each.find(part) != std::string::npos; }))
            << part << "; there are " << sentences.size() << " others";
    }

    static recorder::value number(std::int64_t content) { return recorder::make_integer(content); }

    void notify(void const * device, int type) {
        recorded.begin_notification(device, type);
        recorded.end_notification();
    }

    recorder::session recorded{time_of_session};
    char first = 0;
    char second = 0;
};

TEST_F(RecorderSession, AVisitLastsFromTheArrivalToTheDeparture) {
    begin();
    pass(1s);
    notify(&first, 0);
    pass(1s);
    notify(&second, 0);
    pass(1s);
    notify(&first, 1);
    auto const copy = recorded.copy();
    ASSERT_EQ(copy.visits.size(), 2U);
    EXPECT_EQ(copy.visits[0].connected, 1s);
    EXPECT_EQ(copy.visits[0].disconnected, 3s);
    EXPECT_EQ(copy.visits[1].connected, 2s);
    EXPECT_EQ(copy.visits[1].disconnected, std::nullopt);
    EXPECT_TRUE(copy.notifications.empty());
    EXPECT_TRUE(copy.unplayable.empty());
}

TEST_F(RecorderSession, AfterItsDepartureAnObjectIsAnotherVisit) {
    begin();
    for (int const type : {0, 1, 0}) {
        pass(1s);
        notify(&first, type);
        recorded.answer("f", "State", &first, number(type));
    }
    auto const copy = recorded.copy();
    ASSERT_EQ(copy.visits.size(), 2U);
    EXPECT_EQ(copy.visits[0].answers.at("State").size(), 2U);
    EXPECT_EQ(copy.visits[1].connected, 3s);
    EXPECT_EQ(copy.visits[1].answers.at("State").size(), 1U);
}

// A library may forget a device without a word, and make the next object at its address.
TEST_F(RecorderSession, AnotherEcidIsAnotherObject) {
    for (int const type : {0, 1, 7}) {
        recorder::session own{time_of_session};
        own.begin_registration();
        own.end_registration(1, {});
        own.begin_notification(&first, 0);
        own.answer("f", "State", &first, number(2));
        own.ecid(&first, 10);
        own.end_notification();
        pass(1s);
        own.begin_notification(&first, type);
        own.answer("f", "State", &first, number(3));
        own.answer("f", "ChipID", &first, number(4));
        own.ecid(&first, 20);
        own.ecid(&first, 20);
        own.end_notification();
        auto const copy = own.copy();
        EXPECT_TRUE(copy.unplayable.empty());
        ASSERT_EQ(copy.visits.size(), 2U);
        EXPECT_EQ(copy.visits[0].ecid, 10U);
        EXPECT_EQ(copy.visits[0].answers.size(), 1U);
        EXPECT_EQ(copy.visits[0].answers.at("State"), std::vector{number(2)});
        EXPECT_EQ(copy.visits[0].disconnected, std::nullopt);
        EXPECT_EQ(copy.visits[1].ecid, 20U);
        EXPECT_EQ(copy.visits[1].answers.at("State"), std::vector{number(3)});
        EXPECT_EQ(copy.visits[1].answers.at("ChipID"), std::vector{number(4)});
        EXPECT_EQ(copy.calls.at(2).visit, 0U);
        EXPECT_EQ(copy.calls.at(3).visit, 1U);
        EXPECT_EQ(copy.calls.back().visit, 1U);
        EXPECT_EQ(copy.visits[1].connected.has_value(), type == 0);
        EXPECT_EQ(copy.notifications.size(), type == 0 ? 0U : 1U);
        if (type != 0) {
            EXPECT_EQ(copy.notifications[0].visit, 1U);
            EXPECT_EQ(copy.notifications[0].type, type);
        }
    }
}

TEST_F(RecorderSession, OtherNotificationsAreKeptAsTheyCame) {
    begin();
    pass(1s);
    notify(&first, 1);
    notify(&second, 0);
    notify(&second, 7);
    notify(nullptr, 3);
    auto const copy = recorded.copy();
    ASSERT_EQ(copy.visits.size(), 2U);
    EXPECT_EQ(copy.visits[0].connected, std::nullopt);
    ASSERT_EQ(copy.notifications.size(), 3U);
    EXPECT_EQ(copy.notifications[0].visit, 0U);
    EXPECT_EQ(copy.notifications[0].type, 1);
    EXPECT_EQ(copy.notifications[1].visit, 1U);
    EXPECT_EQ(copy.notifications[2].visit, std::nullopt);
    // In the order of their times, though they came at once.
    EXPECT_LT(copy.notifications[0].after, *copy.visits[1].connected);
    EXPECT_LT(*copy.visits[1].connected, copy.notifications[1].after);
    EXPECT_LT(copy.notifications[1].after, copy.notifications[2].after);
}

TEST_F(RecorderSession, AnswersAreKeptInOrder) {
    begin();
    notify(&first, 0);
    recorded.ecid(&first, 0xABC);
    recorded.answer("f", "State", &first, number(2));
    recorded.answer("f", "State", &first, number(3));
    recorded.recovery_mode_device(&first, &second);
    recorded.command("g", "RebootError", &second, {}, 10);
    auto const visit = recorded.copy().visits.at(0);
    EXPECT_EQ(visit.ecid, 0xABCU);
    EXPECT_EQ(visit.answers.at("State"), (std::vector{number(2), number(3)}));
    EXPECT_EQ(visit.answers.at("RecoveryModeDevice"), std::vector{recorder::make_boolean(true)});
    EXPECT_EQ(visit.answers.at("RebootError"), std::vector{number(10)});
}

TEST_F(RecorderSession, ARecoveryModeDeviceBelongsToWhoeverGaveItLast) {
    char at_one_address = 0;
    begin();
    for (auto const device : {&first, &second}) {
        notify(device, 0);
        recorded.recovery_mode_device(device, &at_one_address);
    }
    recorded.command("g", "RebootError", &at_one_address, {}, 10);
    auto const visits = recorded.copy().visits;
    EXPECT_FALSE(visits.at(0).answers.contains("RebootError"));
    EXPECT_TRUE(visits.at(1).answers.contains("RebootError"));
}

TEST_F(RecorderSession, ReportsHaveTheTimeSinceTheOneBefore) {
    begin();
    notify(&first, 0);
    pass(2s);
    auto const restore = recorded.begin_restore(&first, number(0));
    recorded.end_restore(restore);
    std::thread{[&] {
        pass(3s);
        recorded.report(restore, &first, number(1));
        pass(4s);
        recorded.report(restore, &first, number(2));
    }}.join();
    auto const reports = recorded.copy().visits.at(0).restores.at(0);
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_EQ(reports[0].after, 3s);
    EXPECT_EQ(reports[1].after, 4s);
    EXPECT_EQ(*reports[1].status, number(2));
    EXPECT_EQ(losses(), std::vector<std::string>{});
}

TEST_F(RecorderSession, EachRestoreOfADeviceHasItsReports) {
    begin();
    notify(&first, 0);
    auto const one = recorded.begin_restore(&first, number(0));
    recorded.end_restore(one);
    auto const other = recorded.begin_restore(&first, number(0));
    recorded.end_restore(other);
    std::thread{[&] { recorded.report(other, &first, number(2)); }}.join();
    std::thread{[&] {
        recorded.report(one, &first, number(1));
        recorded.report(one, &first, number(1));
    }}.join();
    auto const restores = recorded.copy().visits.at(0).restores;
    ASSERT_EQ(restores.size(), 2U);
    EXPECT_EQ(restores[0].size(), 2U);
    ASSERT_EQ(restores[1].size(), 1U);
    EXPECT_EQ(*restores[1][0].status, number(2));
    EXPECT_EQ(losses(), std::vector<std::string>{});
}

TEST_F(RecorderSession, ThreadsOfNotificationsAreCountedAsTheyCome) {
    begin();
    notify(&first, 0);
    std::thread{[&] {
        notify(&second, 0);
        notify(&first, 1);
        notify(nullptr, 7);
    }}.join();
    notify(&second, 1);
    auto const copy = recorded.copy();
    EXPECT_EQ(copy.visits.at(0).connect_thread, 0);
    EXPECT_EQ(copy.visits.at(0).disconnect_thread, 1);
    EXPECT_EQ(copy.visits.at(1).connect_thread, 1);
    EXPECT_EQ(copy.visits.at(1).disconnect_thread, 0);
    EXPECT_EQ(copy.notifications.at(0).thread, 1);
    EXPECT_EQ(losses(), std::vector<std::string>{});
}

TEST_F(RecorderSession, MoreThreadsThanAScenarioCanNameAreSaid) {
    begin();
    std::vector<std::thread> threads; // all alive, so that no two have the same number
    std::promise<void> end;
    auto const ended = end.get_future().share();
    for (int count = 0; count < 101; ++count) {
        std::promise<void> notified;
        threads.emplace_back([&] {
            notify(nullptr, 0);
            notified.set_value();
            ended.wait();
        });
        notified.get_future().wait();
        EXPECT_EQ(losses().empty(), count < 100);
    }
    end.set_value();
    std::ranges::for_each(threads, &std::thread::join);
    expect_loss("more than 100 threads");
    EXPECT_EQ(recorded.copy().notifications.back().thread, 0);
}

TEST_F(RecorderSession, TimesOfEarlierCallsAreNegative) {
    recorded.call("before", {}, {});
    begin();
    pass(1s);
    recorded.unregistered(1, 0);
    auto const calls = recorded.copy().calls;
    ASSERT_EQ(calls.size(), 3U);
    EXPECT_EQ(calls[0].after, -5s);
    EXPECT_EQ(calls[2].after, 1s);
}

TEST_F(RecorderSession, WhatCannotBePlayedIsSaid) {
    recorded.begin_registration();
    notify(nullptr, 0);
    recorded.end_registration(0, {});
    expect_loss("inside the registering call");
    expect_loss("failed without an error");
    begin();
    expect_loss("more than once");
    recorded.begin_notification(&first, 0);
    std::thread{[&] { notify(&second, 0); }}.join();
    recorded.end_notification();
    expect_loss("Notifications overlapped");
    recorded.ecid(&first, 1);
    recorded.ecid(&first, 2);
    expect_loss("ECID of a device changed");
    recorded.answer("f", "State", this, number(1));
    expect_loss("f was called for a device that no notification had named");
    recorded.command("g", "RebootError", &recorded, {}, 0);
    expect_loss("g was called for an unknown device");
    recorded.unregistered(1, 5);
    expect_loss("returned 5 for a client");
    notify(nullptr, 0);
    expect_loss("after the tool had unregistered");
    recorded.file_logging("a", 0);
    recorded.file_logging("a", 1);
    expect_loss("EnableFileLogging returned different");
    recorded.default_options(number(1));
    recorded.default_options({});
    expect_loss("CreateDefaultOptions returned different");
    recorded.begin_registration();
    recorded.end_registration(3, recorder::dictionary{});
    expect_loss("succeeded with an error");
}

// The results that the simulator has, too.
TEST_F(RecorderSession, UsualResultsForNullAndUnknownAreNoLoss) {
    constexpr int bad_argument = 1;
    begin();
    recorded.answer("f", "ChipID", nullptr, number(0));
    recorded.answer("g", "SerialNumber", nullptr, recorder::make_null());
    recorded.ecid(nullptr, 0);
    recorded.recovery_mode_device(nullptr, nullptr);
    recorded.command("h", "RebootError", nullptr, {}, bad_argument);
    recorded.unregistered(2, bad_argument);
    recorded.unregistered(1, 0);
    EXPECT_EQ(losses(), std::vector<std::string>{});
}

TEST_F(RecorderSession, OtherResultsForNullAndUnknownAreSaid) {
    begin();
    recorded.answer("f", "ChipID", nullptr, number(7));
    expect_loss("f returned something for a null device");
    recorded.answer("g", "SerialNumber", nullptr, recorder::make_string("SN"));
    expect_loss("g returned something for a null device");
    recorded.ecid(nullptr, 7);
    expect_loss("AMRestorableDeviceGetECID returned something");
    recorded.recovery_mode_device(nullptr, &first);
    expect_loss("AMRestorableDeviceCopyRecoveryModeDevice returned something");
    recorded.command("h", "RebootError", nullptr, {}, 0);
    expect_loss("h returned 0 for a null device");
    recorded.unregistered(2, 0);
    expect_loss("returned 0 for an unknown client");
    auto const calls = recorded.copy().calls;
    ASSERT_EQ(calls.size(), 7U);
    EXPECT_EQ(calls[1].result, number(7));
    EXPECT_EQ(calls[2].result, recorder::make_string("SN"));
    EXPECT_EQ(calls[4].result, recorder::make_boolean(true));
}

TEST_F(RecorderSession, ReportsThatCannotBePlayedAreSaid) {
    begin();
    notify(&first, 0);
    auto const restore = recorded.begin_restore(&first, number(0));
    recorded.report(restore, &second, number(1));
    expect_loss("inside the call that started the restore");
    expect_loss("another device than the restored one");
    recorded.end_restore(restore);
    std::thread{[&] { recorded.report(restore, &first, number(1)); }}.join();
    expect_loss("Reports of one restore came on several threads");
    auto const nowhere = recorded.begin_restore(nullptr, number(0));
    recorded.end_restore(nowhere);
    recorded.report(nowhere, nullptr, number(0));
    expect_loss("without a device");
}

TEST_F(RecorderSession, EachSentenceIsSaidOnce) {
    recorded.lose("a");
    recorded.lose(std::vector<std::string>{"a", "b"});
    EXPECT_EQ(losses(), (std::vector<std::string>{"a", "b"}));
}

TEST_F(RecorderSession, SentencesAreLimited) {
    for (int number = 0; number < 150; ++number) {
        recorded.lose(std::to_string(number));
        recorded.lose("0");
    }
    auto const copy = recorded.copy();
    ASSERT_EQ(copy.unplayable.size(), 100U);
    EXPECT_EQ(copy.unplayable.back(), "99");
    EXPECT_EQ(copy.unplayable_left_out, 50U);
}

TEST_F(RecorderSession, NewsAreToldOnceForEachCopy) {
    int news = 0;
    recorded.call("f", {}, {});
    recorded.on_news([&] { ++news; });
    EXPECT_EQ(news, 1);
    recorded.call("f", {}, {});
    EXPECT_EQ(news, 1);
    recorded.copy();
    recorded.call("f", {}, {});
    EXPECT_EQ(news, 2);
}

} // namespace
