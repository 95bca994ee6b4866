#include "recorder/recording_file.hpp"

#include "recorder/make_scenario.hpp"
#include "simulator/MobileDevice/files.hpp"
#include "simulator/MobileDevice/text.hpp"

#include <cstdint>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

namespace recorder {
namespace {

// Another program that reads the file keeps Windows from replacing it, and it may be the last time.
bool replace_file(std::string const & by, std::string const & target) {
    constexpr int attempts = 100;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        std::error_code error;
        std::filesystem::rename(mobile_device::make_path(by), mobile_device::make_path(target),
                                error);
        if (!error) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds{10});
    }
    return false;
}

} // namespace

recording_file::recording_file(session & source, std::string target, bool keeps,
                               std::chrono::milliseconds between_writes)
    : from{source}
    , path{std::move(target)}
    , keeps_identities{keeps}
    , pause{between_writes} {
    write();
    from.on_news([this] {
        std::lock_guard const lock{mutex};
        news = true;
        woken.notify_one();
    });
    thread = std::thread{[this] { run(); }};
}

recording_file::~recording_file() {
    from.on_news({});
    {
        std::lock_guard const lock{mutex};
        ending = true;
        woken.notify_one();
    }
    thread.join();
}

void recording_file::finish() {
    std::lock_guard const lock{writing};
    write();
    finished = true;
}

void recording_file::run() {
    std::unique_lock lock{mutex};
    while (!ending) {
        woken.wait(lock, [this] { return ending || news; });
        woken.wait_for(lock, pause, [this] { return ending; });
        news = false;
        lock.unlock();
        {
            std::lock_guard const writes{writing};
            if (!finished) {
                write();
            }
        }
        lock.lock();
    }
}

void recording_file::write() {
    if (!write_aside_and_rename() && !std::exchange(complained, true)) {
        mobile_device::write_error_line(
            path + ": the recording cannot be written; is its folder there, and writable?");
    }
}

// The thread has nobody to throw to, and the session must go on.
bool recording_file::write_aside_and_rename() noexcept {
    try {
        auto const text = write_property_list(make_scenario(from.copy(), keeps_identities));
        auto const aside = path + ".new";
        return mobile_device::write_file(
                   aside, {reinterpret_cast<std::uint8_t const *>(text.data()), text.size()}) &&
               replace_file(aside, path);
    } catch (std::exception const &) { // no memory
        return false;
    }
}

} // namespace recorder
