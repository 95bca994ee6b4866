#include "simulator/CoreFoundation/property_list/xml_writer.hpp"

#include "simulator/CoreFoundation/arrays.hpp"
#include "simulator/CoreFoundation/data.hpp"
#include "simulator/CoreFoundation/dictionaries.hpp"
#include "simulator/CoreFoundation/numbers.hpp"
#include "simulator/CoreFoundation/property_list/base64.hpp"
#include "simulator/CoreFoundation/property_list/calendar.hpp"
#include "simulator/CoreFoundation/property_list/uid.hpp"
#include "simulator/CoreFoundation/property_list/utf8.hpp"

#include <algorithm>
#include <vector>

namespace cf {

namespace {

constexpr std::string_view opening = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                     "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                     "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                     "<plist version=\"1.0\">\n";
constexpr std::string_view closing = "</plist>\n";

constexpr std::size_t longest_chunk = 64; // UTF-16 code units

constexpr std::size_t base64_line = 76;
constexpr std::size_t base64_tab = 8;
constexpr std::size_t deepest_base64_indent = 8;

constexpr std::string_view escape_of(char16_t unit) {
    switch (unit) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    default:
        return {};
    }
}

bool precedes(CFStringRef left, CFStringRef right) {
    auto const left_text = contents_of(left);
    auto const right_text = contents_of(right);
    if (!left_text.is_wide() && !right_text.is_wide()) {
        return left_text.ascii() < right_text.ascii();
    }
    auto const shorter = std::min(left_text.length(), right_text.length());
    for (std::size_t index = 0; index < shorter; ++index) {
        if (left_text[index] != right_text[index]) {
            return left_text[index] < right_text[index];
        }
    }
    return left_text.length() < right_text.length();
}

// Where the chunk at the beginning of the text ends: before a character to escape, after so many
// units, and not inside a surrogate pair.
std::size_t chunk_length(std::u16string_view text) {
    auto const limit = std::min(text.size(), longest_chunk);
    std::size_t length = 0;
    while (length < limit && escape_of(text[length]).empty()) {
        ++length;
    }
    auto const cuts_pair = length == longest_chunk && length < text.size() &&
                           is_high_surrogate(text[length - 1]) && is_low_surrogate(text[length]);
    return cuts_pair ? length - 1 : length;
}

// Walks the containers with an explicit stack, so that no nesting is too deep.
class xml_writer {
public:
    std::string write(CFPropertyListRef root) {
        output = opening;
        write_value(root);
        while (!frames.empty()) {
            auto & frame = frames.back();
            if (frame.next == frame.end) {
                close_container();
            } else if (frame.is_dictionary) {
                auto const entry = entries[frame.next++];
                indent();
                output += "<key>";
                write_text(entry.key);
                output += "</key>\n";
                write_value(entry.value);
            } else {
                write_value(values_of(static_cast<CFArrayRef>(frame.container))[frame.next++]);
            }
        }
        output += closing;
        return std::move(output);
    }

private:
    struct dictionary_entry {
        CFStringRef key;
        CFTypeRef value;
    };
    // An open container: an array's elements, or its part of entries for a dictionary.
    struct container_frame {
        CFTypeRef container;
        bool is_dictionary;
        std::size_t begin;
        std::size_t next;
        std::size_t end;
    };

    void indent() { output.append(frames.size(), '\t'); }

    void write_value(CFTypeRef value) {
        indent();
        if (is<__CFString>(value)) {
            output += "<string>";
            write_text(static_cast<CFStringRef>(value));
            output += "</string>\n";
        } else if (is<__CFNumber>(value)) {
            write_number(*static_cast<CFNumberRef>(value));
        } else if (is<__CFDictionary>(value)) {
            open_dictionary(static_cast<CFDictionaryRef>(value));
        } else if (is<__CFArray>(value)) {
            open_array(static_cast<CFArrayRef>(value));
        } else if (is<__CFData>(value)) {
            write_data(bytes_of(static_cast<CFDataRef>(value)));
        } else if (is<keyed_archiver_uid>(value)) {
            write_uid(static_cast<keyed_archiver_uid const *>(value)->value);
        } else if (CFGetTypeID(value) == CFDateGetTypeID()) {
            output += "<date>";
            output += utc_text(CFDateGetAbsoluteTime(static_cast<CFDateRef>(value)));
            output += "</date>\n";
        } else {
            output += value == kCFBooleanTrue ? "<true/>\n" : "<false/>\n";
        }
    }

    void write_number(__CFNumber const & number) {
        output += number.is_real() ? "<real>" : "<integer>";
        output += decimal_text(number);
        output += number.is_real() ? "</real>\n" : "</integer>\n";
    }

    void write_uid(UInt32 value) {
        auto const tabs = frames.size();
        output += "<dict>\n";
        output.append(tabs + 1, '\t');
        output += "<key>CF$UID</key>\n";
        output.append(tabs + 1, '\t');
        output += "<integer>";
        output += std::to_string(value);
        output += "</integer>\n";
        indent();
        output += "</dict>\n";
    }

    void write_data(std::span<UInt8 const> bytes) {
        auto const tabs = std::min(frames.size(), deepest_base64_indent);
        auto const bytes_a_line = (base64_line - base64_tab * tabs) / 4 * 3;
        output += "<data>\n";
        while (!bytes.empty()) {
            auto const line = bytes.first(std::min(bytes.size(), bytes_a_line));
            output.append(tabs, '\t');
            append_base64(output, line);
            output += '\n';
            bytes = bytes.subspan(line.size());
        }
        indent();
        output += "</data>\n";
    }

    void write_text(CFStringRef string) {
        auto const contents = contents_of(string);
        if (contents.is_wide()) {
            write_wide_text(contents.utf16());
        } else {
            write_ascii_text(contents.ascii());
        }
    }

    void write_ascii_text(std::string_view text) {
        std::size_t written = 0;
        for (std::size_t index = 0; index < text.size(); ++index) {
            auto const escape = escape_of(static_cast<unsigned char>(text[index]));
            if (!escape.empty()) {
                output += text.substr(written, index - written);
                output += escape;
                written = index + 1;
            }
        }
        output += text.substr(written);
    }

    void write_wide_text(std::u16string_view text) {
        while (!text.empty()) {
            if (auto const escape = escape_of(text.front()); !escape.empty()) {
                output += escape;
                text.remove_prefix(1);
                continue;
            }
            auto const chunk = text.substr(0, chunk_length(text));
            write_chunk(chunk);
            text.remove_prefix(chunk.size());
        }
    }

    // A surrogate without its other half takes with it all that follows the chunk's first
    // character beyond ASCII.
    void write_chunk(std::u16string_view chunk) {
        auto const * const wide_part =
            std::ranges::find_if(chunk, [](char16_t unit) { return unit >= 0x80; });
        output.append(chunk.begin(), wide_part);
        auto const written = output.size();
        if (!append_utf16(output, {wide_part, chunk.end()})) {
            output.resize(written);
        }
    }

    void open_array(CFArrayRef array) {
        auto const count = values_of(array).size();
        if (count == 0) {
            output += "<array/>\n";
            return;
        }
        output += "<array>\n";
        frames.push_back({array, false, 0, 0, count});
    }

    void open_dictionary(CFDictionaryRef dictionary) {
        auto const begin = entries.size();
        for_each_entry(dictionary, [&](void const * key, void const * value) {
            entries.push_back({static_cast<CFStringRef>(key), value});
        });
        if (entries.size() == begin) {
            output += "<dict/>\n";
            return;
        }
        std::sort(entries.begin() + static_cast<std::ptrdiff_t>(begin), entries.end(),
                  [](dictionary_entry const & left, dictionary_entry const & right) {
                      return precedes(left.key, right.key);
                  });
        output += "<dict>\n";
        frames.push_back({dictionary, true, begin, begin, entries.size()});
    }

    void close_container() {
        auto const frame = frames.back();
        frames.pop_back();
        if (frame.is_dictionary) {
            entries.resize(frame.begin);
        }
        indent();
        output += frame.is_dictionary ? "</dict>\n" : "</array>\n";
    }

    std::string output;
    std::vector<container_frame> frames;
    std::vector<dictionary_entry> entries; // of the open dictionaries, each sorted by key
};

} // namespace

std::string write_xml_property_list(CFPropertyListRef root) {
    return xml_writer{}.write(root);
}

} // namespace cf
