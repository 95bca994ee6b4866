#include "QNRescue/live_contexts.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <optional>
#include <thread>
#include <vector>

namespace {

using qnrescue::live_contexts;

bool can_visit(void const * context) {
    live_contexts::visit const visit(context);
    return static_cast<bool>(visit);
}

TEST(LiveContexts, AreVisitedWhileTheyLive) {
    int object = 0;
    EXPECT_FALSE(can_visit(&object));
    live_contexts::instance().add(&object);
    EXPECT_TRUE(can_visit(&object));
    EXPECT_TRUE(can_visit(&object));
    live_contexts::instance().remove(&object);
    EXPECT_FALSE(can_visit(&object));
}

TEST(LiveContexts, AreToldApart) {
    int objects[2] = {};
    live_contexts::instance().add(&objects[0]);
    EXPECT_TRUE(can_visit(&objects[0]));
    EXPECT_FALSE(can_visit(&objects[1]));
    EXPECT_FALSE(can_visit(nullptr));
    live_contexts::instance().remove(&objects[0]);
}

TEST(LiveContexts, RemovingAnUnknownOneDoesNothing) {
    int object = 0;
    live_contexts::instance().remove(&object);
    EXPECT_FALSE(can_visit(&object));
}

TEST(LiveContexts, MayBeVisitedSeveralTimesAtOnce) {
    int object = 0;
    live_contexts::instance().add(&object);
    {
        live_contexts::visit const first(&object);
        live_contexts::visit const second(&object);
        EXPECT_TRUE(first);
        EXPECT_TRUE(second);
    }
    live_contexts::instance().remove(&object);
}

TEST(LiveContexts, AnAddressMayLiveAgain) {
    int object = 0;
    for (int i = 0; i < 3; ++i) {
        live_contexts::instance().add(&object);
        EXPECT_TRUE(can_visit(&object));
        live_contexts::instance().remove(&object);
        EXPECT_FALSE(can_visit(&object));
    }
}

TEST(LiveContexts, RemovingWaitsForTheVisitsUnderWay) {
    int object = 0;
    live_contexts::instance().add(&object);
    auto first = std::make_optional<live_contexts::visit>(&object);
    auto second = std::make_optional<live_contexts::visit>(&object);
    auto removing =
        std::async(std::launch::async, [&] { live_contexts::instance().remove(&object); });
    EXPECT_EQ(removing.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    first.reset();
    EXPECT_EQ(removing.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    second.reset();
    EXPECT_EQ(removing.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_FALSE(can_visit(&object));
}

// Whether the context is closed to visits within half a minute, as it is once it is being removed.
bool closes(void const * context) {
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (can_visit(context)) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

TEST(LiveContexts, NoVisitBeginsWhileOneIsRemoved) {
    int object = 0;
    live_contexts::instance().add(&object);
    auto under_way = std::make_optional<live_contexts::visit>(&object);
    auto removing =
        std::async(std::launch::async, [&] { live_contexts::instance().remove(&object); });
    EXPECT_TRUE(closes(&object));
    under_way.reset();
    removing.get();
}

TEST(LiveContexts, TheEndOfAVisitIsNoticedByWhoWaitsForIt) {
    int const objects[2] = {};
    for (int const first : {0, 1}) {
        std::future<void> removals[2];
        std::optional<live_contexts::visit> visits[2];
        for (int const i : {0, 1}) {
            live_contexts::instance().add(&objects[i]);
            visits[i].emplace(&objects[i]);
            removals[i] = std::async(std::launch::async, [&objects, i] {
                live_contexts::instance().remove(&objects[i]);
            });
            ASSERT_TRUE(closes(&objects[i])); // the removal waits
        }
        for (int const i : {first, 1 - first}) {
            visits[i].reset();
            EXPECT_EQ(removals[i].wait_for(std::chrono::seconds(30)), std::future_status::ready);
        }
    }
}

TEST(LiveContexts, OthersComeAndGoWhileOneIsRemoved) {
    int object = 0;
    live_contexts::instance().add(&object);
    auto under_way = std::make_optional<live_contexts::visit>(&object);
    auto removing =
        std::async(std::launch::async, [&] { live_contexts::instance().remove(&object); });
    std::vector<int> others(1000);
    for (auto const & other : others) {
        live_contexts::instance().add(&other);
    }
    under_way.reset();
    removing.get();
    for (auto const & other : others) {
        EXPECT_TRUE(can_visit(&other));
        live_contexts::instance().remove(&other);
    }
    EXPECT_FALSE(can_visit(&object));
}

// Visitors use what a context points to; under the address sanitizer a visit that outlives it
// shows.
TEST(LiveContexts, ManyVisitorsOfObjectsThatGo) {
    std::atomic<std::atomic<int> *> shown = nullptr;
    std::atomic<bool> ended = false;
    std::atomic<int> visits = 0;
    std::vector<std::thread> visitors;
    visitors.reserve(4);
    for (int i = 0; i < 4; ++i) {
        visitors.emplace_back([&] {
            while (!ended) {
                auto * const object = shown.load();
                if (live_contexts::visit const visit(object); visit) {
                    object->fetch_add(1);
                    visits.fetch_add(1);
                }
            }
        });
    }
    for (int i = 0; i < 300 || visits == 0; ++i) {
        auto const object = std::make_unique<std::atomic<int>>(0);
        live_contexts::instance().add(object.get());
        shown = object.get();
        std::this_thread::yield();
        live_contexts::instance().remove(object.get());
        object->store(-1);
    }
    ended = true;
    for (auto & visitor : visitors) {
        visitor.join();
    }
    EXPECT_GT(visits, 0);
}

// What is registered before the list is first used is called after what belongs to the list.
[[noreturn]] void end_with_a_context() {
    static int object = 0;
    std::atexit([] { std::_Exit(can_visit(&object) ? 0 : 1); });
    live_contexts::instance().add(&object);
    std::exit(2);
}

TEST(LiveContexts, AreThereToTheVeryEndOfTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(end_with_a_context(), testing::ExitedWithCode(0), "");
}

} // namespace
