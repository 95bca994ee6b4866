#include "tests/unit/launcher/made_library.hpp"

#include <cstring>

namespace tests {

namespace {

constexpr std::uint32_t header = 0x80;
constexpr std::uint32_t section_offset = 0x400;
constexpr std::uint32_t section_address = 0x1000;

// Bytes whose numbers can be set later.
class section_writer {
public:
    std::uint32_t end() const { return section_address + static_cast<std::uint32_t>(bytes.size()); }

    std::uint32_t add(std::string const & text) {
        auto const address = end();
        bytes += text;
        bytes.resize((bytes.size() + 8) / 8 * 8); // with a null character
        return address;
    }
    std::uint32_t add_zeros(std::size_t count) { return add(std::string(count, '\0')); }

    template <typename Number>
    void set(std::uint32_t address, Number number) {
        std::memcpy(bytes.data() + (address - section_address), &number, sizeof number);
    }

    std::string bytes;
};

template <typename Thunk>
std::uint32_t add_thunks(section_writer & section, std::vector<std::string> const & names) {
    auto const table = section.add_zeros(sizeof(Thunk) * (names.size() + 2));
    auto thunk = table;
    for (auto const & name : names) {
        section.set(thunk, Thunk{section.add(std::string(2, '\0') + name)});
        thunk += static_cast<std::uint32_t>(sizeof(Thunk));
    }
    section.set(thunk, static_cast<Thunk>(Thunk{1} << (8 * sizeof(Thunk) - 1) | 7U)); // a number
    return table;
}

std::uint32_t add_imports(section_writer & section, library_parts const & parts) {
    auto const table = section.add_zeros(20 * (parts.imports.size() + 1));
    auto entry = table;
    for (auto const & [name, functions] : parts.imports) {
        section.set(entry + (parts.has_look_up_tables ? 0 : 16),
                    parts.is_64_bit ? add_thunks<std::uint64_t>(section, functions)
                                    : add_thunks<std::uint32_t>(section, functions));
        section.set(entry + 12, section.add(name));
        entry += 20;
    }
    return table;
}

std::uint32_t add_exports(section_writer & section, std::vector<std::string> const & names) {
    auto const table = section.add_zeros(40);
    auto name = section.add_zeros(4 * names.size());
    section.set(table + 24, static_cast<std::uint32_t>(names.size()));
    section.set(table + 32, name);
    for (auto const & each : names) {
        section.set(name, section.add(each));
        name += 4;
    }
    return table;
}

// A table of resources with one entry: of a kind, or a name or language.
std::uint32_t add_resource_table(section_writer & section, std::uint32_t kind) {
    auto const table = section.add_zeros(23);
    section.set(table + 14, std::uint16_t{1});
    section.set(table + 16, kind);
    return table;
}

std::uint32_t add_version(section_writer & section, launcher::file_version const & version) {
    auto const data = section.add_zeros(92);
    section.set(data + 40, 0xFEEF04BD);
    section.set(data + 48, std::uint32_t{version[0]} << 16 | version[1]);
    section.set(data + 52, std::uint32_t{version[2]} << 16 | version[3]);
    auto const kinds = add_resource_table(section, 16);
    auto const names = add_resource_table(section, 1);
    auto const languages = add_resource_table(section, 0x409);
    auto const entry = section.add_zeros(16);
    section.set(kinds + 20, (names - kinds) | 0x80000000);
    section.set(names + 20, (languages - kinds) | 0x80000000);
    section.set(languages + 20, entry - kinds);
    section.set(entry, data);
    return kinds;
}

template <typename Number>
void put(std::string & file, std::size_t offset, Number number) {
    std::memcpy(file.data() + offset, &number, sizeof number);
}

} // namespace

std::string made_library(library_parts const & parts) {
    section_writer section;
    section.add_zeros(8);
    std::string file(section_offset, '\0');
    file.replace(0, 2, "MZ");
    put(file, 0x3C, header);
    file.replace(header, 2, "PE");
    put(file, header + 4, parts.machine);
    put(file, header + 6, std::uint16_t{1}); // section
    std::uint16_t const optional_size = parts.is_64_bit ? 240 : 224;
    put(file, header + 20, optional_size);
    auto const optional = header + 24;
    put(file, optional, static_cast<std::uint16_t>(parts.is_64_bit ? 0x20B : 0x10B));
    auto const directories = optional + (parts.is_64_bit ? 112 : 96);
    put(file, directories - 4, std::uint32_t{16});
    if (!parts.exports.empty()) {
        put(file, directories, add_exports(section, parts.exports));
    }
    if (!parts.imports.empty()) {
        put(file, directories + 8, add_imports(section, parts));
    }
    if (parts.version) {
        put(file, directories + 16, add_version(section, *parts.version));
    }
    auto const entry = optional + optional_size;
    put(file, entry + 12, section_address);
    put(file, entry + 16, static_cast<std::uint32_t>(section.bytes.size()));
    put(file, entry + 20, section_offset);
    return file + section.bytes;
}

} // namespace tests
