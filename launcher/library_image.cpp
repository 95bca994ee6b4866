#include "launcher/library_image.hpp"

#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>

namespace launcher {

namespace {

struct damaged {};

enum class directory : std::size_t { exports = 0, imports = 1, resources = 2 };

constexpr std::uint16_t most_sections = 96; // that Windows loads

// In bytes. Far above all libraries; the file is read as a whole.
constexpr std::size_t largest_file = std::size_t{1} << 28;

struct section {
    std::uint32_t address;
    std::uint32_t size; // in the file
    std::uint32_t offset;
};

// The bytes of a file, by their offsets in it and by the addresses that they are loaded to. Throws
// damaged for an offset or address outside the file, and if the tables and names that are read add
// up to more than the file: then they overlap, and reading them all could take for ever.
class image_reader {
public:
    explicit image_reader(std::string_view file);

    template <typename Number>
    Number at(std::size_t offset) const;
    std::size_t offset_of(std::uint32_t address) const;
    std::string text(std::uint32_t address);
    // Counts an entry of a table, of this size, that is about to be read.
    void count_entry(std::size_t size);
    // Returns the address of a table; 0 if the image does not have it.
    std::uint32_t address_of(directory table) const;

    std::uint16_t machine = 0;
    bool is_64_bit = false;

private:
    std::string_view bytes;
    std::size_t uncounted;
    std::vector<section> sections;
    std::size_t directories = 0; // offset
    std::uint32_t directory_count = 0;
};

image_reader::image_reader(std::string_view file)
    : bytes(file)
    , uncounted(file.size()) {
    if (!bytes.starts_with("MZ")) {
        throw damaged();
    }
    std::size_t const header = at<std::uint32_t>(0x3C);
    if (at<std::uint32_t>(header) != 0x4550) { // "PE"
        throw damaged();
    }
    machine = at<std::uint16_t>(header + 4);
    auto const section_count = at<std::uint16_t>(header + 6);
    if (section_count > most_sections) {
        throw damaged();
    }
    auto const optional_size = at<std::uint16_t>(header + 20);
    auto const optional = header + 24;
    is_64_bit = at<std::uint16_t>(optional) == 0x20B;
    directories = optional + (is_64_bit ? 112 : 96);
    directory_count = at<std::uint32_t>(directories - 4);
    for (std::size_t i = 0; i < section_count; ++i) {
        auto const entry = optional + optional_size + 40 * i;
        sections.push_back({at<std::uint32_t>(entry + 12), at<std::uint32_t>(entry + 16),
                            at<std::uint32_t>(entry + 20)});
    }
}

template <typename Number>
Number image_reader::at(std::size_t offset) const {
    if (offset > bytes.size() || bytes.size() - offset < sizeof(Number)) {
        throw damaged();
    }
    Number number;
    std::memcpy(&number, bytes.data() + offset, sizeof number);
    return number;
}

std::size_t image_reader::offset_of(std::uint32_t address) const {
    for (auto const & each : sections) {
        if (address >= each.address && address - each.address < each.size) {
            return std::size_t{address} - each.address + each.offset;
        }
    }
    throw damaged();
}

std::string image_reader::text(std::uint32_t address) {
    auto const start = offset_of(address);
    auto const end = bytes.find('\0', start);
    if (end == std::string_view::npos) {
        throw damaged();
    }
    count_entry(end - start + 1);
    return std::string(bytes.substr(start, end - start));
}

void image_reader::count_entry(std::size_t size) {
    if (size > uncounted) {
        throw damaged();
    }
    uncounted -= size;
}

std::uint32_t image_reader::address_of(directory table) const {
    auto const index = static_cast<std::size_t>(table);
    return index < directory_count ? at<std::uint32_t>(directories + 8 * index) : 0;
}

template <typename Thunk>
std::vector<std::string> imported_names(image_reader & image, std::uint32_t thunks) {
    constexpr Thunk is_number = Thunk{1} << (8 * sizeof(Thunk) - 1);
    std::vector<std::string> names;
    auto offset = image.offset_of(thunks);
    while (auto const thunk = image.at<Thunk>(offset)) {
        image.count_entry(sizeof thunk);
        if ((thunk & is_number) == 0) {
            names.push_back(image.text(static_cast<std::uint32_t>(thunk) + 2));
        }
        offset += sizeof(Thunk);
    }
    return names;
}

std::vector<imported_library> imports_of(image_reader & image) {
    std::vector<imported_library> imports;
    auto const table = image.address_of(directory::imports);
    if (table == 0) {
        return imports;
    }
    constexpr std::size_t size = 20;
    for (auto entry = image.offset_of(table);; entry += size) {
        auto const name = image.at<std::uint32_t>(entry + 12);
        if (name == 0) {
            return imports;
        }
        image.count_entry(size);
        auto const look_up = image.at<std::uint32_t>(entry);
        auto const thunks = look_up != 0 ? look_up : image.at<std::uint32_t>(entry + 16);
        imports.push_back({image.text(name), image.is_64_bit
                                                 ? imported_names<std::uint64_t>(image, thunks)
                                                 : imported_names<std::uint32_t>(image, thunks)});
    }
}

std::vector<std::string> exports_of(image_reader & image) {
    std::vector<std::string> exports;
    auto const table = image.address_of(directory::exports);
    if (table == 0) {
        return exports;
    }
    auto const header = image.offset_of(table);
    auto const count = image.at<std::uint32_t>(header + 24);
    if (count == 0) {
        return exports;
    }
    auto const names = image.offset_of(image.at<std::uint32_t>(header + 32));
    for (std::size_t i = 0; i < count; ++i) {
        image.count_entry(sizeof(std::uint32_t));
        exports.push_back(image.text(image.at<std::uint32_t>(names + 4 * i)));
    }
    std::ranges::sort(exports); // as they should be already
    return exports;
}

constexpr std::uint32_t version_resource = 16;

// Returns what an entry of a table of resources leads to, by its offset from the first table: the
// entry of this kind, or the first of all. The highest bit says that it is another table.
std::uint32_t resource_in(image_reader & image, std::size_t table,
                          std::optional<std::uint32_t> kind) {
    auto const count =
        std::size_t{image.at<std::uint16_t>(table + 12)} + image.at<std::uint16_t>(table + 14);
    for (std::size_t i = 0; i < count; ++i) {
        constexpr std::size_t size = 8;
        image.count_entry(size);
        auto const entry = table + 16 + size * i;
        if (!kind || image.at<std::uint32_t>(entry) == kind) {
            return image.at<std::uint32_t>(entry + 4);
        }
    }
    throw damaged();
}

// Returns the offset in the file of the first version resource.
std::size_t version_resource_of(image_reader & image) {
    auto const root = image.offset_of(image.address_of(directory::resources));
    constexpr std::uint32_t is_table = 0x80000000;
    auto found = resource_in(image, root, version_resource);
    for (int level = 0; level < 2; ++level) { // its names, and its languages
        if ((found & is_table) == 0) {
            throw damaged();
        }
        found = resource_in(image, root + (found & ~is_table), {});
    }
    return image.offset_of(image.at<std::uint32_t>(root + found));
}

file_version read_version(image_reader & image) {
    constexpr std::size_t length_of_key = 40; // of VS_VERSION_INFO, with what is before it
    auto const fixed = version_resource_of(image) + length_of_key;
    if (image.at<std::uint32_t>(fixed) != 0xFEEF04BD) {
        throw damaged();
    }
    return {image.at<std::uint16_t>(fixed + 10), image.at<std::uint16_t>(fixed + 8),
            image.at<std::uint16_t>(fixed + 14), image.at<std::uint16_t>(fixed + 12)};
}

// A library without a version, or with a damaged one, can be used all the same.
std::optional<file_version> version_of(image_reader & image) {
    try {
        return read_version(image);
    } catch (damaged const &) {
        return std::nullopt;
    }
}

struct close_file {
    void operator()(std::FILE * file) const { std::fclose(file); }
};
using file_owner = std::unique_ptr<std::FILE, close_file>;

file_owner open_file(QN::filesystem::path const & file) {
#ifdef _WIN32
    return file_owner(_wfopen(file.c_str(), L"rb"));
#else
    return file_owner(std::fopen(file.c_str(), "rb"));
#endif
}

} // namespace

std::optional<library_image> parse_library_image(std::string_view bytes) {
    try {
        image_reader image(bytes);
        return library_image{image.machine, imports_of(image), exports_of(image),
                             version_of(image)};
    } catch (damaged const &) {
        return std::nullopt;
    }
}

std::optional<library_image> read_library_image(QN::filesystem::path const & file) {
    boost::system::error_code error;
    if (file_size(file, error) > largest_file || error) {
        return std::nullopt;
    }
    auto const stream = open_file(file);
    if (!stream) {
        return std::nullopt;
    }
    std::string bytes;
    std::array<char, 0x10000> block;
    while (auto const count = std::fread(block.data(), 1, block.size(), stream.get())) {
        bytes.append(block.data(), count);
    }
    return parse_library_image(bytes);
}

} // namespace launcher
