#include "simulator/MobileDevice/world_file.hpp"

#include "simulator/MobileDevice/file_lock.hpp"
#include "simulator/MobileDevice/files.hpp"

#include <chrono>
#include <system_error>
#include <thread>

namespace mobile_device {
namespace {

// Programs that know nothing of the lock, such as a virus scanner, may have the file open. Tries
// again for a second until the call returns something that is true.
template <typename Call>
auto insist(Call call) {
    constexpr int attempts = 50;
    auto result = call();
    for (int attempt = 1; attempt < attempts && !result; ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds{20});
        result = call();
    }
    return result;
}

} // namespace

world_file::world_file(std::string of)
    : path{std::move(of)} {}

world world_file::update(std::function<void(world &)> const & change,
                         std::optional<world> const & new_world) {
    file_lock const lock{beside(".lock"), file_lock::kind::exclusive};
    if (!lock) {
        fail("cannot be locked; is its folder there, and writable?");
    }
    std::error_code error;
    auto const missing = std::filesystem::status(make_path(path), error).type() ==
                         std::filesystem::file_type::not_found;
    if (missing) {
        latest.reset();
    }
    auto result = missing && new_world ? *new_world : parse(content());
    change(result);
    store(result);
    return result;
}

std::optional<world> world_file::read_change() {
    file_lock const lock{beside(".lock"), file_lock::kind::shared};
    if (!lock) {
        fail("cannot be locked; is its folder there, and writable?");
    }
    auto bytes = content();
    return latest == bytes ? std::nullopt : std::optional{parse(std::move(bytes))};
}

void world_file::fail(std::string_view fault) const {
    throw scenario_fault{fmt::format("{}: {}", path, fault)};
}

std::filesystem::path world_file::beside(std::string_view suffix) const {
    auto result = make_path(path);
    return result.empty() ? result : result += suffix;
}

std::vector<std::uint8_t> world_file::content() const {
    auto bytes = insist([this] { return read_file(path); });
    if (!bytes) {
        fail("cannot be read");
    }
    return *std::move(bytes);
}

world world_file::parse(std::vector<std::uint8_t> bytes) {
    try {
        auto result = parse_world(bytes);
        latest = std::move(bytes);
        return result;
    } catch (scenario_fault const & fault) {
        fail(fmt::format("is not a world, and is left as it is: {}", fault.what()));
    }
}

void world_file::store(world const & changed) {
    auto const data = make_property_list(changed);
    auto const bytes = CFDataGetBytePtr(data.get());
    std::vector<std::uint8_t> next{bytes, bytes + CFDataGetLength(data.get())};
    if (next == latest) {
        return;
    }
    auto const replaced = insist([&] {
        std::error_code error;
        if (!write_file(path + ".new", next)) {
            return false;
        }
        std::filesystem::rename(beside(".new"), make_path(path), error);
        return !error;
    });
    if (!replaced) {
        remove_file(path + ".new");
        fail("cannot be written; is it in use, or is the disk full?");
    }
    latest = std::move(next);
}

} // namespace mobile_device
