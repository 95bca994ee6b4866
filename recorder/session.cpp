#include "recorder/session.hpp"

#include "simulator/MobileDevice/amr_errors.hpp"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace recorder {
namespace {

constexpr int connected_type = 0;
constexpr int disconnected_type = 1;
constexpr std::size_t most_threads = 100; // that a scenario can name
constexpr std::size_t most_losses = 100;  // that somebody reads

} // namespace

void session::call(std::string_view function, std::optional<value> argument,
                   std::optional<value> result) {
    add([=, this, argument = std::move(argument),
         result = std::move(result)](moment const & at) mutable {
        add_call(at, {{}, std::string{function}, {}, std::move(argument), std::move(result)});
    });
}

void session::file_logging(std::string_view path, int result) {
    add([this, path = std::string{path}, result](moment const & at) {
        recorded.logging_results.push_back(result);
        if (result != recorded.logging_results.front()) {
            add_loss("AMRestoreEnableFileLogging returned different results.");
        }
        add_call(at, {{},
                      "AMRestoreEnableFileLogging",
                      {},
                      make_string(path),
                      make_integer(std::int64_t{result})});
    });
}

void session::default_options(std::optional<value> options) {
    add([this, options = std::move(options)](moment const & at) mutable {
        recorded.default_options.push_back(std::move(options));
        if (recorded.default_options.back() != recorded.default_options.front()) {
            add_loss("AMRestoreCreateDefaultOptions returned different options.");
        }
        add_call(at, {{}, "AMRestoreCreateDefaultOptions", {}, {}, {}});
    });
}

void session::begin_registration() {
    add([this](moment const & at) {
        registering = at.thread;
        if (registrations++ == 0) {
            for (auto & each : recorded.calls) {
                each.after -= at.time - began;
            }
            began = at.time;
        } else {
            add_loss("The tool registered for notifications more than once.");
        }
        add_call(
            at,
            {{}, "AMRestorableDeviceRegisterForNotifications", {}, {}, {}}); // before its callbacks
        registration_call = recorded.calls.size() - 1;
    });
}

void session::end_registration(int result, std::optional<dictionary> error) {
    add([this, result, error = std::move(error)](moment const &) mutable {
        registering.reset();
        if (result > 0) {
            clients.insert(result);
        }
        if (error && result > 0) {
            add_loss("AMRestorableDeviceRegisterForNotifications succeeded with an error.");
        } else if (!error && result <= 0) {
            add_loss("AMRestorableDeviceRegisterForNotifications failed without an error.");
        }
        recorded.calls[registration_call].result = make_integer(std::int64_t{result});
        if (error && !recorded.registration_error) {
            recorded.registration_error = std::move(error);
        }
    });
}

void session::unregistered(int client, int result) {
    add([this, client, result](moment const & at) {
        bool const is_known = clients.erase(client) == 1;
        if (result != (is_known ? 0 : mobile_device::amr_bad_argument)) {
            add_loss(fmt::format(
                "AMRestorableDeviceUnregisterForNotifications returned {} for {} client.", result,
                is_known ? "a" : "an unknown"));
        }
        add_call(at, {{},
                      "AMRestorableDeviceUnregisterForNotifications",
                      {},
                      make_integer(std::int64_t{client}),
                      make_integer(std::int64_t{result})});
    });
}

void session::begin_notification(void const * device, int type) {
    add([=, this](moment const & at) {
        if (registering == at.thread) {
            add_loss("A notification came inside the registering call.");
        }
        if (clients.empty() && !registering) {
            add_loss("A notification came after the tool had unregistered.");
        }
        if (running_notifications++ > 0) {
            add_loss("Notifications overlapped; they are played one after the other.");
        }
        // No two have the same time, so that they are played in this order.
        constexpr clock::duration shortest = std::chrono::microseconds{2};
        last_notification = std::max(at.time - began, last_notification + shortest);
        add_notification(device, type, last_notification, number_of(at.thread));
    });
}

void session::end_notification() {
    add([this](moment const &) { --running_notifications; });
}

// An object is known from a notification of its arrival until that of its departure. In any other
// notification it may be a new object at the address of an earlier one.
void session::add_notification(void const * device, int type, clock::duration after, int thread) {
    if (device == nullptr) {
        recorded.notifications.push_back({after, {}, type, thread});
        return;
    }
    auto const found = visits.find(device);
    bool const is_known = found != visits.end() && attached.contains(found->second);
    auto const index = is_known ? found->second : recorded.visits.size();
    if (!is_known) {
        recorded.visits.emplace_back();
        visits[device] = index;
    }
    if (is_known) {
        remember_notification(index, type, after, thread);
    }
    auto & subject = recorded.visits[index];
    if (!is_known && type == connected_type) {
        subject.connected = after;
        subject.connect_thread = thread;
        attached.insert(index);
    } else if (is_known && type == disconnected_type) {
        subject.disconnected = after;
        subject.disconnect_thread = thread;
        attached.erase(index);
    } else {
        recorded.notifications.push_back({after, index, type, thread});
    }
}

void session::answer(std::string_view function, std::string_view key, void const * device,
                     value result) {
    add([=, this, result = std::move(result)](moment const & at) mutable {
        auto const index = visit_of(function, device);
        if (!index) {
            answer_for_null(at, function, std::move(result));
            return;
        }
        recorded.visits[*index].answers[std::string{key}].push_back(std::move(result));
        add_call(at, {{}, std::string{function}, index, {}, {}});
    });
}

// The simulator knows nothing of a null device.
void session::answer_for_null(moment const & at, std::string_view function, value result) {
    bool const is_usual = result == make_integer(std::int64_t{0}) || result == make_null() ||
                          result == make_boolean(false);
    if (!is_usual) {
        add_loss(fmt::format("{} returned something for a null device.", function));
    }
    add_call(at, {{}, std::string{function}, {}, {}, std::move(result)});
}

void session::ecid(void const * device, std::uint64_t result) {
    add([=, this](moment const & at) {
        constexpr auto function = "AMRestorableDeviceGetECID";
        auto index = visit_of(function, device);
        if (index) {
            auto & known = recorded.visits[*index].ecid;
            if (known.value_or(result) == result) {
                known = result;
            } else if (split_visit(*index, result)) {
                index = visits[device] = recorded.visits.size() - 1;
            } else {
                add_loss("The ECID of a device changed; the first one is played.");
            }
            add_call(at, {{}, function, index, {}, {}});
        } else {
            answer_for_null(at, function, make_integer(result));
        }
    });
}

void session::remember_notification(std::size_t visit, int type, clock::duration after,
                                    int thread) {
    auto & mark = latest[visit] = {after, type, thread, recorded.calls.size(), {}};
    for (auto const & [key, answers] : recorded.visits[visit].answers) {
        mark.answers[key] = answers.size();
    }
}

// Another ECID means another object at the same address, whose first notification was the latest
// one. Gives it what was recorded since. Returns false where there was none.
bool session::split_visit(std::size_t old, std::uint64_t ecid) {
    auto const found = latest.find(old);
    if (found == latest.end()) {
        return false;
    }
    auto const since = latest.extract(found).mapped();
    auto const other = recorded.visits.size();
    auto & made = recorded.visits.emplace_back();
    made.ecid = ecid;
    for (auto & [key, answers] : recorded.visits[old].answers) {
        auto const kept = since.answers.find(key);
        auto const first =
            answers.begin() +
            (kept == since.answers.end() ? 0 : static_cast<std::ptrdiff_t>(kept->second));
        if (first != answers.end()) {
            made.answers[key].assign(first, answers.end());
            answers.erase(first, answers.end());
        }
    }
    std::erase_if(recorded.visits[old].answers,
                  [](auto const & each) { return each.second.empty(); });
    for (auto call = since.calls; call < recorded.calls.size(); ++call) {
        if (recorded.calls[call].visit == old) {
            recorded.calls[call].visit = other;
        }
    }
    move_notification(old, other, since);
    return true;
}

void session::move_notification(std::size_t old, std::size_t other,
                                latest_notification const & since) {
    attached.erase(old);
    if (since.type == disconnected_type) {
        recorded.visits[old].disconnected.reset();
        recorded.visits[old].disconnect_thread = 0;
    } else {
        std::erase_if(recorded.notifications, [&](other_notification const & each) {
            return each.visit == old && each.after == since.after;
        });
    }
    if (since.type == connected_type) {
        recorded.visits[other].connected = since.after;
        recorded.visits[other].connect_thread = since.thread;
        attached.insert(other);
    } else {
        recorded.notifications.push_back({since.after, other, since.type, since.thread});
    }
}

void session::recovery_mode_device(void const * device, void const * result) {
    add([=, this](moment const & at) {
        constexpr auto function = "AMRestorableDeviceCopyRecoveryModeDevice";
        auto const index = visit_of(function, device);
        auto const exists = make_boolean(result != nullptr);
        if (!index) {
            answer_for_null(at, function, exists);
            return;
        }
        recorded.visits[*index].answers["RecoveryModeDevice"].push_back(exists);
        if (result) {
            recovery_modes[result] = *index;
        }
        add_call(at, {{}, function, index, {}, {}});
    });
}

void session::command(std::string_view function, std::string_view key,
                      void const * recovery_mode_device, std::optional<value> argument,
                      int result) {
    add([=, this, argument = std::move(argument)](moment const & at) mutable {
        auto const found = recovery_modes.find(recovery_mode_device);
        std::optional<std::size_t> index;
        auto const returned = make_integer(std::int64_t{result});
        if (found != recovery_modes.end()) {
            index = found->second;
            recorded.visits[*index].answers[std::string{key}].push_back(returned);
        } else if (recovery_mode_device) {
            add_loss(fmt::format("{} was called for an unknown device.", function));
        } else if (result != mobile_device::amr_bad_argument) {
            add_loss(fmt::format("{} returned {} for a null device.", function, result));
        }
        add_call(at, {{}, std::string{function}, index, std::move(argument), returned});
    });
}

session::restore_id session::begin_restore(void const * device, value options) {
    std::lock_guard const lock{mutex};
    auto const id = restores_begun++;
    add_locked([=, this, options = std::move(options)](moment const & at) mutable {
        constexpr auto function = "AMRestorableDeviceRestore";
        auto const index = visit_of(function, device);
        restore_state started{index, 0, device, at.time, at.thread, {}};
        if (index) {
            auto & all = recorded.visits[*index].restores;
            started.number = all.size();
            all.emplace_back();
        }
        add_call(at, {{}, function, index, std::move(options), {}});
        restores[id] = started;
    });
    return id;
}

void session::end_restore(restore_id restore) {
    add([this, restore](moment const &) { restores.at(restore).starter = {}; });
}

void session::report(restore_id restore, void const * device, value status) {
    add([=, this, status = std::move(status)](moment const & at) mutable {
        auto & reporting = restores.at(restore);
        if (reporting.starter == at.thread) {
            add_loss("A report came inside the call that started the restore.");
        }
        if (reporting.reporter.value_or(at.thread) != at.thread) {
            add_loss("Reports of one restore came on several threads; they are played on one.");
        }
        if (device != reporting.device) {
            add_loss("A report named another device than the restored one.");
        }
        reporting.reporter = at.thread;
        auto const after = at.time - std::exchange(reporting.last, at.time);
        if (reporting.visit) {
            recorded.visits[*reporting.visit].restores[reporting.number].push_back(
                {after, std::make_shared<value const>(std::move(status))});
        } else {
            add_loss("A report came for a restore without a device.");
        }
    });
}

void session::lose(std::string const & sentence) {
    add([this, sentence](moment const &) { add_loss(sentence); });
}

void session::lose(std::vector<std::string> const & sentences) {
    add([this, sentences](moment const &) {
        std::ranges::for_each(sentences, [this](std::string const & each) { add_loss(each); });
    });
}

recording session::copy() {
    std::lock_guard const lock{working};
    work_off();
    return recorded;
}

void session::on_news(std::function<void()> call_back) {
    std::lock_guard const lock{mutex};
    news_call_back = std::move(call_back);
    if (news && news_call_back) {
        news_call_back();
    }
}

int session::number_of(std::thread::id thread) {
    auto const found = notifiers.find(thread);
    if (found != notifiers.end()) {
        return found->second;
    }
    if (notifiers.size() == most_threads) {
        add_loss("Notifications came on more than 100 threads; others are played on the first.");
        return 0;
    }
    auto const next = static_cast<int>(notifiers.size());
    notifiers.emplace(thread, next);
    return next;
}

std::optional<std::size_t> session::visit_of(std::string_view function, void const * device) {
    if (device == nullptr) {
        return std::nullopt;
    }
    auto const found = visits.find(device);
    if (found != visits.end()) {
        return found->second;
    }
    add_loss(fmt::format("{} was called for a device that no notification had named.", function));
    auto const index = recorded.visits.size();
    recorded.visits.emplace_back();
    visits[device] = index;
    return index;
}

void session::add_call(moment const & at, recorded_call what) {
    what.after = at.time - began;
    recorded.calls.push_back(std::move(what));
}

void session::add_loss(std::string const & sentence) {
    if (losses.contains(sentence)) {
        return;
    }
    if (losses.size() == most_losses) {
        ++recorded.unplayable_left_out;
        return;
    }
    losses.insert(sentence);
    recorded.unplayable.push_back(sentence);
}

void session::add(std::function<void(moment const &)> event) {
    std::lock_guard const lock{mutex};
    add_locked(std::move(event));
}

void session::add_locked(std::function<void(moment const &)> event) {
    noted.push_back({{now(), std::this_thread::get_id()}, std::move(event)});
    if (!std::exchange(news, true) && news_call_back) {
        news_call_back();
    }
}

void session::work_off() {
    work_off_taken(); // there are some where an event has thrown
    {
        std::lock_guard const lock{mutex};
        news = false;
        taken.swap(noted);
    }
    work_off_taken();
}

// An event that throws is lost; those after it wait for the next copy.
void session::work_off_taken() {
    while (!taken.empty()) {
        auto const [at, event] = std::move(taken.front());
        taken.pop_front();
        event(at);
    }
}

} // namespace recorder
