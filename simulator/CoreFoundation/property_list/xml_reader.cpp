#include "simulator/CoreFoundation/property_list/xml_reader.hpp"

#include "simulator/CoreFoundation/arrays.hpp"
#include "simulator/CoreFoundation/dictionaries.hpp"
#include "simulator/CoreFoundation/numbers.hpp"
#include "simulator/CoreFoundation/property_list/uid.hpp"
#include "simulator/CoreFoundation/property_list/xml_text.hpp"

#include <algorithm>

namespace cf {

namespace {

enum class element_kind {
    plist,
    array,
    dict,
    key,
    string,
    data,
    date,
    real,
    integer,
    is_true,
    is_false
};

struct element_name {
    std::string_view name;
    element_kind kind;
};
constexpr element_name element_names[] = {
    {"key", element_kind::key},         {"string", element_kind::string},
    {"integer", element_kind::integer}, {"true", element_kind::is_true},
    {"false", element_kind::is_false},  {"dict", element_kind::dict},
    {"array", element_kind::array},     {"data", element_kind::data},
    {"real", element_kind::real},       {"date", element_kind::date},
    {"plist", element_kind::plist},
};

constexpr std::string_view uid_key = "CF$UID";

struct tag {
    element_name const * name;
    bool is_empty;
};

bool is_container(element_kind kind) {
    return kind == element_kind::plist || kind == element_kind::array || kind == element_kind::dict;
}

// Keeps open containers on an explicit stack, since plist tags may nest without limit.
class xml_reader {
public:
    xml_reader(std::string_view document, property_list_options wanted)
        : scanner{document}
        , options{wanted}
        , strings{wanted} {}

    ~xml_reader() {
        for (auto const * const value : values) {
            release(object_of(value));
        }
    }
    xml_reader(xml_reader const &) = delete;
    xml_reader & operator=(xml_reader const &) = delete;

    owned_reference read() {
        skip_prolog();
        read_element();
        while (!frames.empty()) {
            if (find_open_tag()) {
                read_element();
            } else {
                close_container();
            }
        }
        owned_reference root{values.back()};
        values.pop_back();
        return root;
    }

private:
    // An open container; its children are the values from `first` on, those of a dict keys
    // and values in turn.
    struct container_frame {
        element_name const * name;
        std::size_t first;
    };

    void skip_prolog();
    void skip_comment();
    void skip_processing_instruction();
    void skip_document_type();
    bool find_open_tag();
    tag read_tag();
    void read_close_tag(std::string_view name);
    void read_element();
    void open_container(element_name const & name);
    void close_container();
    CFTypeRef read_content(element_name const & name);
    CFTypeRef empty_element(element_name const & name);
    CFTypeRef read_boolean(element_name const & name, CFBooleanRef value);
    CFTypeRef create_array(std::span<CFTypeRef const> elements);
    CFTypeRef create_dictionary(std::span<CFTypeRef const> keys_and_values);
    void add(CFTypeRef value, element_kind kind);

    bool awaits_value() const;
    [[noreturn]] void fail_without_element();

    xml_scanner scanner;
    property_list_options options;
    property_list_strings strings;
    std::vector<container_frame> frames;
    std::vector<CFTypeRef> values;
    std::size_t depth = 0; // of array and dict
};

// Stops behind the "<" of the first element.
void xml_reader::skip_prolog() {
    for (;;) {
        scanner.skip_space();
        if (scanner.left() < 2) {
            scanner.fail("No XML content found");
        }
        if (scanner.peek() != '<') {
            scanner.fail(fmt::format("Unexpected character {} at line {}", scanner.character(),
                                     scanner.line()));
        }
        if (scanner.rest().starts_with("<!--")) {
            skip_comment();
        } else if (scanner.rest().starts_with("<!DOCTYPE")) {
            skip_document_type();
        } else if (scanner.rest().starts_with("<?")) {
            skip_processing_instruction();
        } else {
            scanner.skip(1);
            return;
        }
    }
}

void xml_reader::skip_comment() {
    constexpr std::string_view opening = "<!--";
    constexpr std::string_view closing = "-->";
    auto const end = scanner.rest().find(closing, opening.size());
    if (end == std::string_view::npos) {
        scanner.fail_on_line("Unterminated comment started on line");
    }
    scanner.skip(end + closing.size());
}

void xml_reader::skip_processing_instruction() {
    constexpr std::string_view closing = "?>";
    auto const end = scanner.rest().find(closing);
    if (end == std::string_view::npos || end + closing.size() == scanner.left()) {
        scanner.fail_on_line(
            "Encountered unexpected EOF while parsing the processing instruction begun on line");
    }
    scanner.skip(end + closing.size());
}

void xml_reader::skip_document_type() {
    auto const end = scanner.rest().find_first_of("[>");
    if (end == std::string_view::npos) {
        scanner.fail("Encountered unexpected EOF while parsing DTD");
    }
    scanner.skip(end);
    if (scanner.peek() == '[') {
        scanner.fail(fmt::format("Encountered unexpected character [ on line {} while parsing DTD",
                                 scanner.line()));
    }
    scanner.skip(1);
}

bool xml_reader::awaits_value() const {
    auto const & frame = frames.back();
    return frame.name->kind == element_kind::dict && (values.size() - frame.first) % 2 == 1;
}

// The document ends, or its container does, where an element should be.
void xml_reader::fail_without_element() {
    if (!frames.empty() && awaits_value()) {
        scanner.fail_on_line("Value missing for key inside <dict> at line");
    }
    scanner.fail_at_end();
}

// Stops behind the "<" of an open tag, or before that of a close tag.
bool xml_reader::find_open_tag() {
    for (;;) {
        scanner.skip_space();
        if (scanner.at_end()) {
            fail_without_element();
        }
        auto const rest = scanner.rest();
        if (rest.starts_with("</")) {
            return false;
        }
        if (rest.starts_with("<!--")) {
            skip_comment();
        } else if (rest.starts_with("<?")) {
            skip_processing_instruction();
        } else if (rest.front() == '<' && !rest.starts_with("<!")) {
            scanner.skip(1);
            return true;
        } else {
            scanner.skip(rest.front() == '<' ? 1 : 0);
            scanner.fail(fmt::format(
                "Encountered unexpected character {} on line {} while looking for open tag",
                scanner.character(), scanner.line()));
        }
    }
}

// Reads the tag up to its first ">", even if that is in the value of an attribute.
tag xml_reader::read_tag() {
    auto inside = scanner.take_until('>');
    if (scanner.at_end()) {
        fail_without_element();
    }
    scanner.skip(1);
    auto const is_empty = inside.ends_with('/');
    inside.remove_suffix(is_empty ? 1 : 0);
    auto const name =
        inside.substr(0, static_cast<std::size_t>(
                             std::ranges::find_if(inside, xml_scanner::is_space) - inside.begin()));
    if (name.empty()) {
        scanner.fail_on_line("Malformed tag on line");
    }
    auto const * const found = std::ranges::find(element_names, name, &element_name::name);
    if (found == std::end(element_names)) {
        scanner.fail(fmt::format("Encountered unknown tag {} on line {}", name, scanner.line()));
    }
    return {found, is_empty};
}

void xml_reader::read_close_tag(std::string_view name) {
    constexpr std::string_view opening = "</";
    if (!scanner.skip_if(opening)) {
        if (opening.starts_with(scanner.rest())) {
            scanner.fail_at_end();
        }
        scanner.skip(scanner.peek() == '<' ? 1 : 0);
        scanner.fail(fmt::format(
            "Encountered unexpected character {} on line {} while looking for close tag",
            scanner.character(), scanner.line()));
    }
    if (!scanner.skip_if(name)) {
        if (name.starts_with(scanner.rest())) {
            scanner.fail_at_end();
        }
        scanner.fail(
            fmt::format("Close tag on line {} does not match open tag {}", scanner.line(), name));
    }
    scanner.skip_space();
    if (scanner.at_end()) {
        scanner.fail_at_end();
    }
    if (!scanner.skip_if(">")) {
        scanner.fail(
            fmt::format("Close tag on line {} does not match open tag {}", scanner.line(), name));
    }
}

void xml_reader::read_element() {
    auto const tag = read_tag();
    if (tag.is_empty) {
        add(empty_element(*tag.name), tag.name->kind);
    } else if (is_container(tag.name->kind)) {
        open_container(*tag.name);
    } else {
        owned_reference value{read_content(*tag.name)};
        read_close_tag(tag.name->name);
        add(value.release(), tag.name->kind);
    }
}

CFTypeRef xml_reader::read_content(element_name const & name) {
    switch (name.kind) {
    case element_kind::key:
    case element_kind::string:
        return read_xml_string(scanner, strings);
    case element_kind::data:
        return read_xml_data(scanner, options);
    case element_kind::date:
        return read_xml_date(scanner);
    case element_kind::real:
        return read_xml_real(scanner);
    case element_kind::integer:
        return read_xml_integer(scanner);
    case element_kind::is_true:
        return read_boolean(name, kCFBooleanTrue);
    default:
        return read_boolean(name, kCFBooleanFalse);
    }
}

CFTypeRef xml_reader::read_boolean(element_name const & name, CFBooleanRef value) {
    constexpr std::string_view closing = "</";
    auto const is_cut_off = closing.starts_with(scanner.rest());
    if (!is_cut_off && !scanner.rest().starts_with(closing)) {
        scanner.fail(
            fmt::format("Encountered non-empty <{}> on line {}", name.name, scanner.line()));
    }
    return CFRetain(value);
}

CFTypeRef xml_reader::empty_element(element_name const & name) {
    switch (name.kind) {
    case element_kind::plist:
        scanner.fail("Encountered empty plist tag");
    case element_kind::array:
        return create_array({});
    case element_kind::dict:
        return create_dictionary({});
    case element_kind::key:
    case element_kind::string:
        return strings.from_utf8({});
    case element_kind::is_true:
        return CFRetain(kCFBooleanTrue);
    case element_kind::is_false:
        return CFRetain(kCFBooleanFalse);
    default:
        scanner.fail(fmt::format("Encountered empty <{}> on line {}", name.name, scanner.line()));
    }
}

void xml_reader::open_container(element_name const & name) {
    if (name.kind != element_kind::plist && ++depth > deepest_property_list) {
        scanner.fail_on_line("Too many nested arrays or dictionaries, failing on line");
    }
    frames.push_back({&name, values.size()});
}

void xml_reader::close_container() {
    auto const frame = frames.back();
    if (awaits_value()) {
        fail_without_element();
    }
    std::span<CFTypeRef const> const children{
        values.begin() + static_cast<std::ptrdiff_t>(frame.first), values.end()};
    if (frame.name->kind == element_kind::plist && children.empty()) {
        scanner.fail("Encountered empty plist tag");
    }
    read_close_tag(frame.name->name);
    auto const * container = children.empty() ? nullptr : children.front();
    if (frame.name->kind != element_kind::plist) {
        container = frame.name->kind == element_kind::array ? create_array(children)
                                                            : create_dictionary(children);
        --depth;
    }
    values.resize(frame.first);
    frames.pop_back();
    add(container, frame.name->kind);
}

CFTypeRef xml_reader::create_array(std::span<CFTypeRef const> elements) {
    return create_array_adopting(elements, options.of_xml_container(elements.empty()));
}

bool is_uid_entry(std::span<CFTypeRef const> keys_and_values) {
    if (keys_and_values.size() != 2 || !is<__CFNumber>(keys_and_values[1]) ||
        static_cast<CFNumberRef>(keys_and_values[1])->is_real()) {
        return false;
    }
    auto const key = contents_of(static_cast<CFStringRef>(keys_and_values[0]));
    return key.ascii() == uid_key;
}

// Of equal keys the last one stays.
CFTypeRef xml_reader::create_dictionary(std::span<CFTypeRef const> keys_and_values) {
    if (is_uid_entry(keys_and_values)) {
        auto const & number = *static_cast<CFNumberRef>(keys_and_values[1]);
        auto const value =
            number.is_wide() ? number.wide.low : static_cast<std::uint64_t>(number.integer);
        release(object_of(keys_and_values[0]));
        release(number);
        return create<keyed_archiver_uid>(static_cast<UInt32>(value));
    }
    auto * const dictionary =
        create_object_dictionary(static_cast<CFIndex>(keys_and_values.size() / 2),
                                 options.of_xml_container(keys_and_values.empty()));
    for (; !keys_and_values.empty(); keys_and_values = keys_and_values.subspan(2)) {
        set_adopting(dictionary, keys_and_values[0], keys_and_values[1]);
    }
    return dictionary;
}

// Passes a complete element on to its parent.
void xml_reader::add(CFTypeRef value, element_kind kind) {
    values.push_back(value);
    if (frames.empty()) {
        return;
    }
    auto const & parent = frames.back();
    auto const children = values.size() - parent.first;
    if (parent.name->kind == element_kind::plist && children > 1) {
        scanner.fail(fmt::format(
            "Encountered unexpected element at line {} (plist can only include one object)",
            scanner.line()));
    }
    if (parent.name->kind == element_kind::dict && children % 2 == 1 && kind != element_kind::key) {
        scanner.fail_on_line("Found non-key inside <dict> at line");
    }
}

} // namespace

owned_reference read_xml_property_list(std::string_view document, property_list_options options) {
    return xml_reader{document, options}.read();
}

} // namespace cf
