#include "recorder/make_scenario.hpp"

#include "recorder/pseudonyms.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>

#include <fmt/format.h>

namespace recorder {
namespace {

constexpr std::int64_t format_version = 1;

// For devices that nobody asked.
constexpr std::uint64_t first_unknown_ecid = 0xF000000000000001;

// What a device has in all its states, and what it has in the same state.
constexpr char const * identity_keys[] = {
    "ProductID",  "BoardID",    "ChipID",       "ProductType",
    "FusingInfo", "LocationID", "SerialNumber", "ProductString",
};
constexpr char const * conduct_keys[] = {"RecoveryModeDevice", "SetAutoBootError", "RebootError"};

value seconds(clock::duration time) {
    auto const microseconds = std::chrono::duration<double, std::micro>{time}.count();
    return make_real(std::round(microseconds) / 1e6);
}

std::string format_ecid(std::uint64_t ecid) {
    return fmt::format("{:016X}", ecid);
}

std::vector<value> const * answers_of(visit const & subject, std::string_view key) {
    auto const found = subject.answers.find(key);
    return found == subject.answers.end() ? nullptr : &found->second;
}

bool are_equal(std::vector<value> const & values) {
    return std::ranges::all_of(values, [&](value const & each) { return each == values.front(); });
}

bool in_same_state(visit const & one, visit const & other) {
    auto const ours = answers_of(one, "State");
    auto const theirs = answers_of(other, "State");
    return ours && theirs && are_equal(*ours) && are_equal(*theirs) &&
           ours->front() == theirs->front();
}

// Gives each visit the answers that only another visit of the same device was asked for.
void complete(std::vector<visit> & visits) {
    auto const adopt = [](visit & into, visit const & from, char const * key) {
        if (auto const answers = answers_of(from, key)) {
            into.answers.try_emplace(key, *answers);
        }
    };
    auto const asked = visits;
    for (auto & into : visits) {
        for (auto const & from : asked) {
            if (!into.ecid || from.ecid != into.ecid) {
                continue;
            }
            for (auto const key : identity_keys) {
                adopt(into, from, key);
            }
            if (!in_same_state(into, from)) {
                continue;
            }
            for (auto const key : conduct_keys) {
                adopt(into, from, key);
            }
            if (into.restores.empty()) {
                into.restores = from.restores;
            }
        }
    }
}

void number_unknown(std::vector<visit> & visits) {
    auto next = first_unknown_ecid;
    for (auto & each : visits) {
        while (!each.ecid) {
            bool const taken = std::ranges::any_of(
                visits, [&](visit const & other) { return other.ecid == next; });
            if (!taken) {
                each.ecid = next;
            }
            ++next;
        }
    }
}

// Calls a function for every text inside the value, with its key or that of the array it is in.
void for_each_text(value const & inside, auto const & see, std::string_view key = {}) {
    if (auto const text = std::get_if<std::string>(&inside.held)) {
        see(key, *text);
    } else if (auto const elements = std::get_if<array>(&inside.held)) {
        for (auto const & each : *elements) {
            for_each_text(each, see, key);
        }
    } else if (auto const entries = std::get_if<dictionary>(&inside.held)) {
        for (auto const & each : *entries) {
            for_each_text(each.content, see, each.key);
        }
    }
}

// Replaces the identities of a recording. Those that devices and options name are learned first, so
// that they are found inside other texts.
class identity_cover {
public:
    explicit identity_cover(recording & covered)
        : target{covered} {}

    void apply() {
        for (auto & each : target.visits) {
            each.ecid = each.ecid ? std::optional{names.ecid(*each.ecid)} : std::nullopt;
        }
        change_answers("SerialNumber",
                       [this](auto const & text) { return names.serial_number(text); });
        change_answers("ProductString",
                       [this](auto const & text) { return names.product_string(text); });
        for (auto & each : target.calls) {
            if (each.argument) {
                learn_paths(each.function, *each.argument);
            }
        }
        cover_texts();
    }

private:
    void change_answers(char const * key, auto const & change) {
        for (auto & each : target.visits) {
            if (auto const found = each.answers.find(key); found != each.answers.end()) {
                for (auto & answer : found->second) {
                    if (auto const text = std::get_if<std::string>(&answer.held)) {
                        *text = change(*text);
                    }
                }
            }
        }
    }

    // A relative path is known by its place alone; a mere word in it may mean something else
    // elsewhere.
    void learn_paths(std::string_view function, value const & argument) {
        bool const is_log = function == "AMRestoreEnableFileLogging";
        for_each_text(argument, [&](std::string_view key, std::string const & text) {
            bool const is_relative = (is_log || key.ends_with("Path")) &&
                                     text.find_first_of("./\\") != std::string::npos;
            if (is_path(text) || is_relative) {
                names.path(text);
            }
        });
    }

    void cover(value & inside) {
        if (auto const text = std::get_if<std::string>(&inside.held)) {
            *text = names.text(*text);
        } else if (auto const leaf = std::get_if<element>(&inside.held)) {
            cover_integer(*leaf);
        } else if (auto const elements = std::get_if<array>(&inside.held)) {
            std::ranges::for_each(*elements, [this](value & each) { cover(each); });
        } else if (auto const entries = std::get_if<dictionary>(&inside.held)) {
            for (auto & each : *entries) {
                if (each.key != "$type") {
                    each.key = names.text(each.key);
                    cover(each.content);
                }
            }
        }
    }

    void cover_integer(element & leaf) {
        constexpr std::string_view opening = "<integer>";
        constexpr std::string_view closing = "</integer>";
        if (leaf.xml.starts_with(opening)) {
            auto const length = leaf.xml.size() - opening.size() - closing.size();
            leaf.xml.replace(opening.size(), length,
                             names.integer(leaf.xml.substr(opening.size(), length)));
        }
    }

    void cover_texts() {
        for (auto & each : target.calls) {
            for (auto const part : {&each.argument, &each.result}) {
                if (*part) {
                    cover(**part);
                }
            }
        }
        for (auto & each : target.default_options) {
            if (each) {
                cover(*each);
            }
        }
        for (auto & each : target.unplayable) {
            each = names.text(each);
        }
        if (target.registration_error) {
            value error{*target.registration_error};
            cover(error);
            target.registration_error = std::get<dictionary>(error.held);
        }
        cover_reports();
    }

    void cover_reports() {
        for (auto & each : target.visits) {
            for (auto & reports : each.restores) {
                std::ranges::for_each(reports, [this](restore_report & report) {
                    auto status = *report.status;
                    cover(status);
                    report.status = std::make_shared<value const>(std::move(status));
                });
            }
        }
    }

    recording & target;
    pseudonyms names;
};

value make_reports(std::vector<restore_report> const & reports) {
    array result;
    for (auto const & each : reports) {
        result.push_back({dictionary{{"After", seconds(each.after)}, {"Status", *each.status}}});
    }
    return {std::move(result)};
}

// Adds a key for answers that are all alike, and an entry of `Answers` for others.
void add_answers(dictionary & device, dictionary & changing, std::string const & key,
                 std::vector<value> answers) {
    if (are_equal(answers)) {
        if (answers.front() != make_null()) {
            device.push_back({key, answers.front()});
        }
        return;
    }
    while (answers[answers.size() - 2] == answers.back()) {
        answers.pop_back();
    }
    changing.push_back({key, {array{answers.begin(), answers.end()}}});
}

void add_thread(dictionary & to, char const * key, int number) {
    if (number != 0) {
        to.push_back({key, make_integer(std::int64_t{number})});
    }
}

value make_device(visit const & from) {
    auto const ecid = from.ecid.value_or(first_unknown_ecid);
    dictionary device{{"ECID", make_string(format_ecid(ecid))}};
    dictionary changing;
    for (auto const & [key, answers] : from.answers) {
        add_answers(device, changing, key, answers);
    }
    if (!changing.empty()) {
        device.push_back({"Answers", {std::move(changing)}});
    }
    if (from.connected) {
        device.push_back({"ConnectAfter", seconds(*from.connected)});
    } else {
        device.push_back({"Connects", make_boolean(false)});
    }
    if (from.disconnected) {
        device.push_back({"DisconnectAfter", seconds(*from.disconnected)});
    }
    add_thread(device, "ConnectThread", from.connect_thread);
    add_thread(device, "DisconnectThread", from.disconnect_thread);
    if (!from.restores.empty()) {
        device.push_back({"RestoreReports", make_reports(from.restores.front())});
    }
    if (from.restores.size() > 1) {
        array later;
        std::ranges::transform(from.restores.begin() + 1, from.restores.end(),
                               std::back_inserter(later), make_reports);
        device.push_back({"LaterRestores", {std::move(later)}});
    }
    if (from.answers.contains("RebootError")) { // what it did then was recorded
        device.push_back({"Returns", make_boolean(false)});
    }
    return {std::move(device)};
}

value make_notification(other_notification const & from) {
    dictionary result{{"After", seconds(from.after)}};
    if (from.visit) {
        result.push_back({"Device", make_integer(std::uint64_t{*from.visit})});
    }
    add_thread(result, "Thread", from.thread);
    result.push_back({"Type", make_integer(std::int64_t{from.type})});
    return {std::move(result)};
}

dictionary make_failures(recording const & from) {
    dictionary result;
    if (from.registration_error) {
        result.push_back({"RegisterForNotifications", {*from.registration_error}});
    }
    if (!from.logging_results.empty() && from.logging_results.front() != 0) {
        result.push_back(
            {"EnableFileLogging", make_integer(std::int64_t{from.logging_results.front()})});
    }
    if (!from.default_options.empty() && !from.default_options.front()) {
        result.push_back({"CreateDefaultOptions", make_boolean(true)});
    }
    return result;
}

value make_call(recorded_call const & from) {
    dictionary result{{"After", seconds(from.after)}, {"Function", make_string(from.function)}};
    if (from.visit) {
        result.push_back({"Device", make_integer(std::uint64_t{*from.visit})});
    }
    if (from.argument) {
        result.push_back({"Argument", *from.argument});
    }
    if (from.result) {
        result.push_back({"Result", *from.result});
    }
    return {std::move(result)};
}

template <typename Element>
value make_array(std::vector<Element> const & from, auto const & make) {
    array result;
    for (auto const & each : from) {
        result.push_back(make(each));
    }
    return {std::move(result)};
}

} // namespace

value make_scenario(recording from, bool keeps_identities) {
    complete(from.visits);
    if (!keeps_identities) {
        identity_cover{from}.apply();
    }
    number_unknown(from.visits);
    dictionary root;
    if (!from.default_options.empty()) {
        if (auto const & options = from.default_options.front()) {
            root.push_back({"DefaultOptions", *options});
        }
    }
    root.push_back({"Devices", make_array(from.visits, make_device)});
    if (auto failures = make_failures(from); !failures.empty()) {
        root.push_back({"Failures", {std::move(failures)}});
    }
    root.push_back({"Notifications", make_array(from.notifications, make_notification)});
    root.push_back({"Recording",
                    {dictionary{{"Calls", make_array(from.calls, make_call)},
                                {"Identities", make_string(keeps_identities ? "kept" : "replaced")},
                                {"Version", make_integer(format_version)}}}});
    if (from.unplayable_left_out > 0) {
        from.unplayable.push_back(fmt::format("There were {} more.", from.unplayable_left_out));
    }
    if (!from.unplayable.empty()) {
        root.push_back({"Unplayable", make_array(from.unplayable, make_string)});
    }
    return {std::move(root)};
}

} // namespace recorder
