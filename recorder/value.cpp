#include "recorder/value.hpp"

#include <cstddef>
#include <optional>
#include <utility>

#include <fmt/format.h>

namespace recorder {
namespace {

void write_text(std::string & out, std::string_view text) {
    for (auto const character : text) {
        if (character == '<') {
            out += "&lt;";
        } else if (character == '>') {
            out += "&gt;";
        } else if (character == '&') {
            out += "&amp;";
        } else if (character == '\r') { // a plain one is read as a line feed
            out += "&#13;";
        } else {
            out += character;
        }
    }
}

// A character that XML cannot hold: a control character, a lone surrogate, U+FFFE or U+FFFF.
struct unwritable_character {
    std::size_t at;
    std::size_t length; // in bytes
    std::uint64_t unit; // of UTF-16
};

std::optional<unwritable_character> find_unwritable(std::string_view text) {
    auto const byte = [&](std::size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
    };
    for (std::size_t at = 0; at < text.size(); ++at) {
        auto const first = byte(at);
        if (first < 0x20 && first != '\t' && first != '\n' && first != '\r') {
            return unwritable_character{at, 1, first};
        }
        if ((first & 0xF0) == 0xE0) {
            auto const unit =
                (first & 0x0F) << 12 | (byte(at + 1) & 0x3F) << 6 | (byte(at + 2) & 0x3F);
            if ((unit & 0xF800) == 0xD800 || unit >= 0xFFFE) {
                return unwritable_character{at, 3, unit};
            }
        }
    }
    return std::nullopt;
}

dictionary text_in_parts(std::string_view text) {
    array parts;
    while (!text.empty()) {
        auto const found = find_unwritable(text);
        auto const end = found ? found->at : text.size();
        if (end > 0) {
            parts.push_back(make_string(text.substr(0, end)));
        }
        if (found) {
            parts.push_back(make_integer(found->unit));
        }
        text.remove_prefix(end + (found ? found->length : 0));
    }
    return {{"$type", make_string("text")}, {"Parts", {std::move(parts)}}};
}

void write_element(std::string & out, std::string_view tag, std::string_view text) {
    out += fmt::format("<{}>", tag);
    write_text(out, text);
    out += fmt::format("</{}>\n", tag);
}

// Writes a value as lines of XML.
class writer {
public:
    explicit writer(std::string & target)
        : out{target} {}

    void write(value const & content) { std::visit(*this, content.held); }

    void operator()(element const & leaf) {
        indent();
        out += leaf.xml;
        out += '\n';
    }

    void operator()(std::string const & text) {
        if (!is_xml_text(text)) {
            (*this)(text_in_parts(text));
            return;
        }
        indent();
        write_element(out, "string", text);
    }

    void operator()(array const & elements) {
        container("array", elements, [this](value const & each) { write(each); });
    }

    void operator()(dictionary const & entries) {
        container("dict", entries, [this](entry const & each) {
            indent();
            write_element(out, "key", each.key);
            write(each.content);
        });
    }

private:
    void indent() { out.append(depth, '\t'); }

    template <typename Elements, typename Write>
    void container(std::string_view tag, Elements const & elements, Write write_one) {
        indent();
        out += fmt::format("<{}>\n", tag);
        ++depth;
        for (auto const & each : elements) {
            write_one(each);
        }
        --depth;
        indent();
        out += fmt::format("</{}>\n", tag);
    }

    std::string & out;
    std::size_t depth = 0;
};

} // namespace

bool operator==(value const & left, value const & right) {
    if (left.held.index() != right.held.index()) {
        return false;
    }
    if (auto const leaf = std::get_if<element>(&left.held)) {
        return leaf->xml == std::get<element>(right.held).xml;
    }
    if (auto const text = std::get_if<std::string>(&left.held)) {
        return *text == std::get<std::string>(right.held);
    }
    if (auto const elements = std::get_if<array>(&left.held)) {
        return *elements == std::get<array>(right.held);
    }
    auto const same_entry = [](entry const & one, entry const & other) {
        return one.key == other.key && one.content == other.content;
    };
    auto const & ours = std::get<dictionary>(left.held);
    auto const & theirs = std::get<dictionary>(right.held);
    return std::equal(ours.begin(), ours.end(), theirs.begin(), theirs.end(), same_entry);
}

value make_integer(std::int64_t number) {
    return {element{fmt::format("<integer>{}</integer>", number)}};
}

value make_integer(std::uint64_t number) {
    return {element{fmt::format("<integer>{}</integer>", number)}};
}

value make_real(double number) {
    return {element{fmt::format("<real>{}</real>", number)}};
}

value make_boolean(bool truth) {
    return {element{truth ? "<true/>" : "<false/>"}};
}

value make_string(std::string_view text) {
    return {std::string{text}};
}

value make_null() {
    return {dictionary{{"$type", make_string("null")}}};
}

bool is_xml_text(std::string_view text) {
    return !find_unwritable(text);
}

std::string write_property_list(value const & root) {
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\""
                      " \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                      "<plist version=\"1.0\">\n";
    writer{out}.write(root);
    out += "</plist>\n";
    return out;
}

} // namespace recorder
