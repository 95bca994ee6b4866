// What happens between the tool and the library, as it is recorded.
#pragma once

#include "recorder/value.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace recorder {

using clock = std::chrono::steady_clock;

// A report of a restore, and the time since the report before or the start.
struct restore_report {
    clock::duration after;
    std::shared_ptr<value const> status;
};

// A device from its arrival to its departure. Answers are by the scenario's key.
struct visit {
    std::optional<std::uint64_t> ecid; // absent: nobody asked
    std::optional<clock::duration> connected;
    std::optional<clock::duration> disconnected;
    int connect_thread = 0;
    int disconnect_thread = 0;
    std::map<std::string, std::vector<value>, std::less<>> answers;
    std::vector<std::vector<restore_report>> restores;
};

// A notification that is neither an arrival nor the departure after it.
struct other_notification {
    clock::duration after;
    std::optional<std::size_t> visit; // absent: a null device
    int type;
    int thread = 0; // threads are counted from 0 on, as they come
};

struct recorded_call {
    clock::duration after; // since registration; negative before
    std::string function;
    std::optional<std::size_t> visit;
    std::optional<value> argument;
    std::optional<value> result; // absent where the visit or the recording has it
};

// All that is recorded. Times count from the first registration.
struct recording {
    std::vector<visit> visits = {};
    std::vector<other_notification> notifications = {};
    std::vector<recorded_call> calls = {};
    std::optional<dictionary> registration_error = {};
    std::vector<int> logging_results = {};
    std::vector<std::optional<value>> default_options = {};
    std::vector<std::string> unplayable = {}; // the first sentences, each once
    std::size_t unplayable_left_out = 0;      // those after them
};

// Collects a recording. Any thread may call any function; none calls the library. A call only notes
// what happened, however long the session is; what that means is worked out by the thread that asks
// for a copy. Names of functions and keys are literals.
class session {
public:
    explicit session(clock::time_point (*time)() = clock::now)
        : now{time}
        , began{time()} {}

    // Calls that belong to no device, after they have returned.
    void call(std::string_view function, std::optional<value> argument,
              std::optional<value> result);
    void file_logging(std::string_view path, int result);
    void default_options(std::optional<value> options);

    // Around the registering call; the result is above 0 for success.
    void begin_registration();
    void end_registration(int result, std::optional<dictionary> error);
    void unregistered(int client, int result);

    // Around the notification of the tool.
    void begin_notification(void const * device, int type);
    void end_notification();

    // What the library returned for a device, under the scenario's key.
    void answer(std::string_view function, std::string_view key, void const * device, value result);
    void ecid(void const * device, std::uint64_t result);
    void recovery_mode_device(void const * device, void const * result);
    void command(std::string_view function, std::string_view key, void const * recovery_mode_device,
                 std::optional<value> argument, int result);

    // Where reports of one restore go.
    using restore_id = std::size_t;
    restore_id begin_restore(void const * device, value options);
    void end_restore(restore_id restore);
    void report(restore_id restore, void const * device, value status);

    // Adds a sentence about what the scenario cannot express.
    void lose(std::string const & sentence);
    void lose(std::vector<std::string> const & sentences);

    // Returns what has been recorded, and counts it as read.
    recording copy();
    // Is called when there is something to read, at most once for each copy; it must be quick.
    void on_news(std::function<void()> call_back);

private:
    struct restore_state {
        std::optional<std::size_t> visit;
        std::size_t number; // among the restores of the visit
        void const * device;
        clock::time_point last;
        std::thread::id starter; // as long as the starting call has not returned
        std::optional<std::thread::id> reporter;
    };

    // What was recorded of a visit before the latest notification of its object.
    struct latest_notification {
        clock::duration after;
        int type;
        int thread;
        std::size_t calls;
        std::map<std::string, std::size_t, std::less<>> answers; // how many, by key
    };

    struct moment {
        clock::time_point time;
        std::thread::id thread;
    };

    // Something that happened, and what is made of it.
    struct noted_event {
        moment at;
        std::function<void(moment const &)> work;
    };

    void add(std::function<void(moment const &)> event);
    void add_locked(std::function<void(moment const &)> event);
    void work_off();
    void work_off_taken();
    std::optional<std::size_t> visit_of(std::string_view function, void const * device);
    void answer_for_null(moment const & at, std::string_view function, value result);
    void add_call(moment const & at, recorded_call what);
    void add_loss(std::string const & sentence);
    void add_notification(void const * device, int type, clock::duration after, int thread);
    void remember_notification(std::size_t visit, int type, clock::duration after, int thread);
    bool split_visit(std::size_t old, std::uint64_t ecid);
    void move_notification(std::size_t old, std::size_t other, latest_notification const & latest);
    int number_of(std::thread::id thread);

    clock::time_point (*const now)();

    std::mutex mutex; // of what calls change
    std::deque<noted_event> noted;
    restore_id restores_begun = 0;
    bool news = false;
    std::function<void()> news_call_back;

    std::mutex working; // of all that follows
    std::deque<noted_event> taken;
    clock::time_point began; // the first registration, or the start before that
    recording recorded;
    std::map<void const *, std::size_t> visits;         // the last one of each object
    std::map<void const *, std::size_t> recovery_modes; // visits, by the recovery-mode device
    std::set<std::size_t> attached;                     // visits
    std::map<std::size_t, latest_notification> latest;  // of visits
    std::map<restore_id, restore_state> restores;
    std::set<std::string> losses;
    int registrations = 0;
    std::size_t registration_call = 0; // its place among the calls
    std::set<int> clients;
    std::optional<std::thread::id> registering;
    std::map<std::thread::id, int> notifiers;
    int running_notifications = 0;
    clock::duration last_notification{0};
};

} // namespace recorder
