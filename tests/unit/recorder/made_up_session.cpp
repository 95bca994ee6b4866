#include "tests/unit/recorder/made_up_session.hpp"

#include "tests/unit/simulator/MobileDevice/property_list_text.hpp"

#include <initializer_list>
#include <random>
#include <string_view>

#include <fmt/format.h>

namespace tests {
namespace {

using property_list::boolean;
using property_list::element;
using property_list::integer;
using property_list::text;

// Draws the parts of one session. The same seed draws the same on every machine, which the
// distributions of <random> do not promise.
class session_maker {
public:
    session_maker(std::uint64_t seed, std::string const & files)
        : engine{seed}
        , folder{files} {}

    made_up_session make() {
        auto const count = 1 + below(4);
        for (std::uint64_t index = 0; index < count; ++index) {
            // Sometimes the same device again.
            ecids.push_back(index > 0 && one_in(6) ? ecids.front()
                                                   : fmt::format("{:X}", 1 + engine() % 0xFFFFFF));
        }
        auto const scenario = make_scenario();
        return {scenario, make_command()};
    }

private:
    std::uint64_t below(std::uint64_t limit) { return engine() % limit; }
    bool one_in(std::uint64_t count) { return below(count) == 0; }

    template <typename Choice>
    Choice one_of(std::initializer_list<Choice> choices) {
        return choices.begin()[below(choices.size())];
    }

    // --- Values

    std::string any_text() {
        static constexpr std::string_view pieces[] = {"a", "Z",    "0",     "9",  " ",
                                                      "-", "&lt;", "&amp;", "\"", "'",
                                                      "é", "漢",   "😀",    "\n", "C:\\x"};
        std::string result;
        for (auto left = below(8); left > 0; --left) {
            result += pieces[below(std::size(pieces))];
        }
        return result;
    }

    // Sometimes one that XML cannot hold.
    std::string any_string() {
        return one_in(6) ? special("text", "Parts",
                                   text(any_text()) +
                                       integer(one_of<std::int64_t>({0, 1, 0x1B, 0xD800, 0xFFFF})))
                         : text(any_text());
    }

    std::int64_t any_integer() {
        return one_of<std::int64_t>({0, 1, -1, 255, 70'000, INT32_MAX, INT32_MIN});
    }

    // Hundredths of a second and a rest, so that nothing happens just when the tool begins or ends
    // to wait: there, threads would decide what it sees.
    std::string time(std::string_view rest) {
        return element("real", fmt::format("{:.2f}{}", 0.01 * double(1 + below(60)), rest));
    }
    std::string notification_time() { return time("3"); }
    std::string report_time() { return time("01"); }

    std::string any_error(bool as_value) {
        auto entries = as_value ? entry("$type", text("error")) : std::string{};
        entries += entry("Domain", text("d" + any_text())) + entry("Code", integer(any_integer()));
        for (auto const key : {"Description", "FailureReason"}) {
            entries += one_in(2) ? entry(key, any_string()) : "";
        }
        return element("dict", entries + (one_in(3) ? entry("UserInfo", any_user_info()) : ""));
    }

    std::string any_user_info() {
        std::string result;
        for (auto const key : {"Path", "NSLocalizedFailure", "NSDescription"}) {
            result += one_in(3) ? entry(key, leaf()) : "";
        }
        return element("dict",
                       result + (one_in(2) ? entry("NSUnderlyingError", any_error(true)) : ""));
    }

    std::string null() { return element("dict", entry("$type", text("null"))); }

    std::string leaf() {
        switch (below(9)) {
        case 0:
            return integer(any_integer());
        case 1:
            return element("integer", one_of({"9223372036854775807", "18446744073709551615"}));
        case 2:
            return element("real", one_of({"0.1", "-1e300", "nan", "inf", "3"}));
        case 3:
            return boolean(one_in(2));
        case 4:
            return element("data", one_of({"", "AAEC", "/////w=="}));
        case 5:
            return element("date", one_of({"2001-01-01T00:00:00Z", "2024-02-29T23:59:59Z"}));
        case 6:
            return null();
        case 7:
            return any_error(true);
        default:
            return any_string();
        }
    }

    std::string value(int depth = 0) {
        if (depth == 3 || !one_in(3)) {
            return leaf();
        }
        std::string several;
        auto const kind = below(4);
        for (auto left = below(4); left > 0; --left) {
            auto const part = value(depth + 1);
            auto const key = fmt::format("key {}", left);
            several += kind == 0   ? entry(key, part)
                       : kind == 1 ? element("dict", entry("Key", integer(std::int64_t(left))) +
                                                         entry("Value", part))
                                   : part;
        }
        if (kind == 1) {
            return special("dictionary", "Entries", several);
        }
        return kind == 0   ? element("dict", several)
               : kind == 2 ? special("set", "Values", several)
                           : element("array", several);
    }

    static std::string entry(std::string_view key, std::string const & content) {
        return element("key", key) + content;
    }

    static std::string special(std::string_view type, std::string_view key,
                               std::string const & elements) {
        return element("dict", entry("$type", text(type)) + entry(key, element("array", elements)));
    }

    // --- Devices

    std::string status(std::int64_t operation, std::int64_t progress) {
        return element("dict", entry("Status", text("Restoring")) +
                                   entry("Operation", integer(operation)) +
                                   entry("Progress", integer(progress)) +
                                   (one_in(3) ? entry("More", value()) : ""));
    }

    std::string any_status() {
        switch (below(6)) {
        case 0:
            return null();
        case 1:
            return special("dictionary", "Entries",
                           element("dict", entry("Key", integer(1)) + entry("Value", value())));
        case 2:
            return element("dict", entry("Status", value()) + entry("Operation", value()));
        default:
            return status(static_cast<std::int64_t>(below(40)),
                          one_of<std::int64_t>({-1, 0, 50, 100}));
        }
    }

    // The reports of a restore; some come after its end.
    std::string reports() {
        constexpr auto complete = 100;
        std::string result;
        auto const count = below(7);
        auto const last = one_in(5) ? count : below(count + 1);
        for (std::uint64_t index = 0; index < count; ++index) {
            auto const repeat = one_in(5) ? entry("Repeat", integer(3)) : std::string{};
            result += element(
                "dict", entry("After", one_in(3) ? integer(0) : report_time()) +
                            entry("Status", index == last ? status(0, complete) : any_status()) +
                            repeat);
        }
        return element("array", result);
    }

    std::string any_state() {
        return one_of<std::string>({integer(0), integer(1), text("Recovery"), integer(2),
                                    text("Recovery"), integer(3), text("BootedOS"), integer(-7)});
    }

    std::string sequence(auto const & make_one) {
        std::string result;
        for (auto left = 1 + below(4); left > 0; --left) {
            result += make_one();
        }
        return element("array", result);
    }

    std::string answers() {
        std::string result;
        if (one_in(3)) {
            result += entry("State", sequence([this] { return any_state(); }));
        }
        if (one_in(3)) {
            result += entry("RecoveryModeDevice", sequence([this] { return boolean(!one_in(4)); }));
        }
        for (auto const key : {"ProductID", "ChipID", "SetAutoBootError", "RebootError"}) {
            if (one_in(4)) {
                result += entry(key, sequence([this] { return integer(any_integer()); }));
            }
        }
        for (auto const key : {"SerialNumber", "ProductString"}) {
            if (one_in(3)) {
                result +=
                    entry(key, sequence([this] { return one_in(3) ? null() : any_string(); }));
            }
        }
        return element("dict", result);
    }

    std::string make_device(std::string const & ecid) {
        auto result = entry("ECID", text(ecid)) + entry("State", any_state());
        for (auto const key :
             {"ProductID", "BoardID", "ChipID", "ProductType", "FusingInfo", "LocationID"}) {
            result += one_in(2) ? entry(key, integer(any_integer())) : "";
        }
        for (auto const key : {"SerialNumber", "ProductString"}) {
            result += one_in(3) ? "" : entry(key, any_string());
        }
        for (auto const key : {"SetAutoBootError", "RebootError"}) {
            result += one_in(5) ? entry(key, integer(one_of<std::int64_t>({1, 10, -1}))) : "";
        }
        result += entry("ConnectAfter", notification_time());
        result += one_in(2) ? entry("DisconnectAfter", notification_time()) : "";
        for (auto const key : {"ConnectThread", "DisconnectThread"}) {
            result += one_in(6) ? entry(key, integer(1 + static_cast<std::int64_t>(below(2)))) : "";
        }
        for (auto const key : {"RecoveryModeDevice", "Connects", "Returns"}) {
            result += one_in(6) ? entry(key, boolean(one_in(3))) : "";
        }
        result += one_in(3) ? entry("Answers", answers()) : "";
        result += one_in(5) ? "" : entry("RestoreReports", reports());
        return element("dict", result);
    }

    std::string make_notification() {
        auto const who =
            one_in(4) ? std::string{}
                      : entry("Device", integer(static_cast<std::int64_t>(below(ecids.size()))));
        return element("dict", entry("After", notification_time()) +
                                   entry("Type", integer(one_of<std::int64_t>({0, 1, 1, 7, -1}))) +
                                   (one_in(4) ? entry("Thread", integer(2)) : "") + who);
    }

    std::string failures() {
        std::string result;
        if (one_in(2)) {
            result += entry("RegisterForNotifications", any_error(false));
        }
        if (one_in(2)) {
            result += entry("EnableFileLogging", integer(any_integer()));
        }
        if (one_in(2)) {
            result += entry("CreateDefaultOptions", boolean(one_in(2)));
        }
        return element("dict", result);
    }

    std::string make_scenario() {
        std::string devices;
        for (auto const & ecid : ecids) {
            devices += make_device(ecid);
        }
        std::string notifications;
        for (auto left = below(4); left > 0; --left) {
            notifications += make_notification();
        }
        auto result = entry("Devices", element("array", devices)) +
                      entry("Notifications", element("array", notifications));
        result += one_in(8) ? entry("Failures", failures()) : "";
        result += one_in(8) ? entry("DefaultOptions",
                                    element("dict", entry("Option", text(any_text())) +
                                                        entry("Other", integer(any_integer()))))
                            : "";
        result += one_in(4) ? entry("TimeScale", integer(2)) : "";
        return element("dict", result);
    }

    // --- The command

    std::vector<std::string> make_command() {
        auto const ecid = one_in(10) ? "ABCDEFABCDEF" : ecids[below(ecids.size())];
        // Without a timeout, the threads decide what the tool sees.
        std::vector<std::string> result{"--detect-timeout", one_of({"1", "2"})};
        auto const add = [&](std::initializer_list<std::string> arguments) {
            result.insert(result.end(), arguments);
        };
        if (one_in(6)) {
            add({"--amr-logfile", folder + "/log"});
        }
        if (one_in(4)) {
            add({"--list-devices"});
            return result;
        }
        add({"--ecid", fmt::format("{:0>16}", ecid)});
        if (one_in(2)) {
            add({one_of({"--device-info", "--exit-recovery", "--no-exit-recovery"})});
            return result;
        }
        add({"--restore", folder + "/x.ipsw", "--restore-timeout", one_of({"1", "3"})});
        if (one_in(4)) {
            add({one_of({"--erase", "--enter-restore-mode"})});
        }
        return result;
    }

    std::mt19937_64 engine;
    std::string const & folder;
    std::vector<std::string> ecids;
};

} // namespace

made_up_session make_up_session(std::uint64_t seed, std::string const & folder) {
    return session_maker{seed, folder}.make();
}

} // namespace tests
