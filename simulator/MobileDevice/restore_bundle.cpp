#include "simulator/MobileDevice/restore_bundle.hpp"

#include "simulator/MobileDevice/amr_errors.hpp"
#include "simulator/MobileDevice/files.hpp"

#include <algorithm>
#include <string_view>

namespace mobile_device {
namespace {

constexpr std::string_view manifest_name = "BuildManifest.plist";

using bytes = std::vector<std::uint8_t>;

// Numbers of a ZIP archive are little-endian; the caller knows that they are inside.
std::uint64_t number(bytes const & data, std::size_t offset, std::size_t width) {
    std::uint64_t result = 0;
    for (std::size_t index = width; index-- > 0;) {
        result = result << 8 | data[offset + index];
    }
    return result;
}

bool has_signature(bytes const & data, std::size_t offset, std::uint32_t signature) {
    return data.size() >= offset + 4 && number(data, offset, 4) == signature;
}

struct central_directory {
    std::uint64_t offset;
    std::uint64_t size;
};

// Archives beyond 4 GB keep the place of their central directory in a second end record, which a
// locator just before the first one points to.
std::optional<central_directory> find_zip64_directory(input_file & file, std::uint64_t end_record) {
    constexpr std::size_t locator_size = 20;
    constexpr std::size_t record_size = 56;
    if (end_record < locator_size) {
        return std::nullopt;
    }
    auto const locator = file.read(end_record - locator_size, locator_size);
    if (!locator || !has_signature(*locator, 0, 0x07064b50)) {
        return std::nullopt;
    }
    auto const record = file.read(number(*locator, 8, 8), record_size);
    if (!record || !has_signature(*record, 0, 0x06064b50)) {
        return std::nullopt;
    }
    return central_directory{number(*record, 48, 8), number(*record, 40, 8)};
}

// The end record is at the end of the file, but for a comment of up to 65535 bytes.
std::optional<central_directory> find_central_directory(input_file & file) {
    constexpr std::uint64_t record_size = 22;
    auto const tail_size = std::min<std::uint64_t>(file.size(), record_size + 0xFFFF);
    auto const tail_start = file.size() - tail_size;
    auto const tail = file.read(tail_start, static_cast<std::size_t>(tail_size));
    if (!tail || tail_size < record_size) {
        return std::nullopt;
    }
    for (auto at = static_cast<std::size_t>(tail_size - record_size) + 1; at-- > 0;) {
        if (!has_signature(*tail, at, 0x06054b50) ||
            at + record_size + number(*tail, at + 20, 2) != tail_size) {
            continue;
        }
        central_directory const directory{number(*tail, at + 16, 4), number(*tail, at + 12, 4)};
        if (directory.offset == 0xFFFFFFFF || directory.size == 0xFFFFFFFF) {
            return find_zip64_directory(file, tail_start + at);
        }
        return directory;
    }
    return std::nullopt;
}

std::optional<bytes> read_central_directory(input_file & file) {
    constexpr std::uint64_t largest = 256U << 20;
    auto const directory = find_central_directory(file);
    if (!directory || directory->size > largest) {
        return std::nullopt;
    }
    return file.read(directory->offset, static_cast<std::size_t>(directory->size));
}

bool lists_manifest(bytes const & directory) {
    constexpr std::size_t header_size = 46;
    std::size_t at = 0;
    while (at + header_size <= directory.size() && has_signature(directory, at, 0x02014b50)) {
        auto const name_size = static_cast<std::size_t>(number(directory, at + 28, 2));
        auto const name = at + header_size;
        if (name_size == manifest_name.size() && name + name_size <= directory.size() &&
            std::equal(manifest_name.begin(), manifest_name.end(),
                       directory.begin() + static_cast<std::ptrdiff_t>(name))) {
            return true;
        }
        at = name + name_size + static_cast<std::size_t>(number(directory, at + 30, 2)) +
             static_cast<std::size_t>(number(directory, at + 32, 2));
    }
    return false;
}

bundle_fault lacks_manifest(std::string const & path) {
    return {amr_file_error, path + " does not hold " + std::string{manifest_name}};
}

std::optional<bundle_fault> check_archive(std::string const & path) {
    input_file file{make_path(path)};
    if (!file) {
        return bundle_fault{amr_unable_to_open_file, path + " cannot be opened"};
    }
    auto const directory = read_central_directory(file);
    if (!directory) {
        return bundle_fault{amr_file_error, path + " is not a ZIP archive"};
    }
    return lists_manifest(*directory) ? std::nullopt : std::optional{lacks_manifest(path)};
}

} // namespace

std::optional<bundle_fault> check_restore_bundle(std::string const & path) {
    std::error_code error;
    auto const bundle = make_path(path);
    if (!std::filesystem::exists(bundle, error)) {
        return bundle_fault{amr_path_does_not_exist, path + " does not exist"};
    }
    if (!std::filesystem::is_directory(bundle, error)) {
        return check_archive(path);
    }
    bool const found = std::filesystem::is_regular_file(bundle / manifest_name, error);
    return found ? std::nullopt : std::optional{lacks_manifest(path)};
}

} // namespace mobile_device
