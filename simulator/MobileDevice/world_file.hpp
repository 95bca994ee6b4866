// The file of a world, which several processes read and change.
#pragma once

#include "simulator/MobileDevice/world.hpp"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace mobile_device {

// Beside the file are its lock, with ".lock" added, and, while it is written, its next content,
// with ".new" added: the file is whole at every moment, whoever is killed. Each operation throws
// scenario_fault, whose text begins with the file, where that cannot be read, locked or written.
class world_file {
public:
    // Takes a path in UTF-8.
    explicit world_file(std::string path);

    // Changes the world while no other process reads or changes it, and returns it. A missing file
    // is an error; with a new world given, that is what is changed then.
    world update(std::function<void(world &)> const & change,
                 std::optional<world> const & new_world = {});

    // Returns the world if its file has changed since this object last read or wrote it.
    std::optional<world> read_change();

private:
    [[noreturn]] void fail(std::string_view fault) const;
    std::filesystem::path beside(std::string_view suffix) const;
    std::vector<std::uint8_t> content() const;
    world parse(std::vector<std::uint8_t> bytes);
    void store(world const & changed);

    std::string const path;
    std::optional<std::vector<std::uint8_t>> latest; // a whole world, as the file held it
};

} // namespace mobile_device
