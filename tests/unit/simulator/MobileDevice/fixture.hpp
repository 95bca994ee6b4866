// What tests of the calls have in common.
#pragma once

#include "platform/cf_strings.hpp"
#include "simulator/MobileDevice/simulator.hpp"
#include "simulator/MobileDevice/values.hpp"
#include "tests/unit/simulator/MobileDevice/manual_clock.hpp"
#include "tests/unit/simulator/MobileDevice/property_list_text.hpp"

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

// Plays scenarios given as the XML of a root dictionary. Their time passes with the test clock.
class SimulatedPlatform : public testing::Test {
protected:
    ~SimulatedPlatform() override { mobile_device::simulator::replace(nullptr); }

    mobile_device::simulator & play(std::string const & root,
                                    std::optional<std::string> const & world = {}) {
        objects.clear();
        mobile_device::simulator::replace(make_simulator(root, world));
        return mobile_device::simulator::instance();
    }

    static std::unique_ptr<mobile_device::simulator>
    make_simulator(std::string const & root, std::optional<std::string> const & world) {
        auto const text = property_list::document(root);
        return std::make_unique<mobile_device::simulator>(
            mobile_device::parse_scenario(
                {reinterpret_cast<std::uint8_t const *>(text.data()), text.size()}),
            test_clock(), world);
    }

    // Returns an object of a device as it is at the start; it lives as long as the test.
    AMRestorableDeviceRef device(std::size_t index) {
        auto & object = objects[index];
        if (!object) {
            auto & of = *mobile_device::simulator::instance().devices().at(index);
            object = of.make_object(of.initial);
        }
        return object.get();
    }

private:
    std::map<std::size_t, mobile_device::cf_owner<AMRestorableDeviceRef>> objects;
};

struct notification {
    mobile_device::cf_share<AMRestorableDeviceRef> object;
    std::uint64_t ecid;
    int state;
    int type;

    bool operator==(notification const & other) const {
        return ecid == other.ecid && state == other.state && type == other.type;
    }
};

inline void PrintTo(notification const & shown, std::ostream * out) {
    *out << "{" << shown.ecid << ", state " << shown.state << ", type " << shown.type << "}";
}

// Registers for notifications and remembers them.
class notification_recorder {
public:
    notification_recorder() {
        id = AMRestorableDeviceRegisterForNotifications(&notification_recorder::receive, this,
                                                        nullptr);
    }
    notification_recorder(notification_recorder const &) = delete;
    notification_recorder & operator=(notification_recorder const &) = delete;
    ~notification_recorder() { AMRestorableDeviceUnregisterForNotifications(id); }

    // Returns what has come.
    std::vector<notification> received() {
        std::lock_guard const lock{mutex};
        return notifications;
    }

    // Lets time pass until there are so many notifications, or no more; returns them.
    std::vector<notification> wait_for(std::size_t count) {
        test_clock().pass_until([&] { return received().size() >= count; });
        return received();
    }

    // Lets time pass; returns what has come until its end.
    std::vector<notification> wait(manual_clock::duration span) {
        test_clock().pass(span);
        return received();
    }

    std::vector<manual_clock::time_point> times() {
        std::lock_guard const lock{mutex};
        return moments;
    }

    int id = 0;

private:
    static void receive(AMRestorableDeviceRef object, AMRestorableDeviceNotificationType type,
                        void * context) {
        auto & self = *static_cast<notification_recorder *>(context);
        notification latest{mobile_device::retain(object), AMRestorableDeviceGetECID(object),
                            AMRestorableDeviceGetState(object), type};
        std::lock_guard const lock{self.mutex};
        self.notifications.push_back(std::move(latest));
        self.moments.push_back(test_clock().now());
    }

    std::mutex mutex;
    std::vector<notification> notifications;
    std::vector<manual_clock::time_point> moments;
};

// Gets the reports of restores and keeps their status dictionaries. A callback cannot be
// unregistered, so the destructor first lets all activity end.
class report_recorder {
public:
    using status = mobile_device::cf_share<CFDictionaryRef>;

    report_recorder() = default;
    report_recorder(report_recorder const &) = delete;
    report_recorder & operator=(report_recorder const &) = delete;
    ~report_recorder() { mobile_device::simulator::instance().end(std::chrono::hours{1}); }

    void restore(AMRestorableDeviceRef device, CFDictionaryRef options = nullptr) {
        AMRestorableDeviceRestore(device, options, &report_recorder::receive, this);
    }

    // Returns what has come.
    std::vector<status> received() {
        std::lock_guard const lock{mutex};
        return reports;
    }

    // Lets time pass until there are so many reports, or no more; returns them.
    std::vector<status> wait_for(std::size_t count) {
        test_clock().pass_until([&] { return received().size() >= count; });
        return received();
    }

    // Lets time pass until a report has the status text, or none follows; returns what has come.
    std::vector<status> wait_for_status(std::string const & text) {
        test_clock().pass_until([&] {
            auto const all = received();
            return !all.empty() && text_of(all.back(), "Status") == text;
        });
        return received();
    }

    // Lets time pass; returns what has come until its end.
    std::vector<status> wait(manual_clock::duration span) {
        test_clock().pass(span);
        return received();
    }

    std::vector<manual_clock::time_point> times() {
        std::lock_guard const lock{mutex};
        return moments;
    }

    static std::string text_of(status const & from, char const * key) {
        auto const value =
            CFDictionaryGetValue(from.get(), mobile_device::make_cfstring(key).get());
        return value ? qnrescue::to_utf8(static_cast<CFStringRef>(value)).value() : "";
    }

    static std::int64_t number_of(status const & from, char const * key) {
        std::int64_t number = -1;
        auto const value =
            CFDictionaryGetValue(from.get(), mobile_device::make_cfstring(key).get());
        if (value) {
            CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &number);
        }
        return number;
    }

private:
    static void receive(AMRestorableDeviceRef, CFDictionaryRef borrowed, void * context) {
        auto & self = *static_cast<report_recorder *>(context);
        std::lock_guard const lock{self.mutex};
        self.reports.push_back(mobile_device::retain(borrowed));
        self.moments.push_back(test_clock().now());
    }

    std::mutex mutex;
    std::vector<status> reports;
    std::vector<manual_clock::time_point> moments;
};
