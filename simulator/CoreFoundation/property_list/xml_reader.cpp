#include "simulator/CoreFoundation/property_list/xml_reader.hpp"

#include "simulator/CoreFoundation/arrays.hpp"
#include "simulator/CoreFoundation/dictionaries.hpp"
#include "simulator/CoreFoundation/numbers.hpp"
#include "simulator/CoreFoundation/property_list/uid.hpp"
#include "simulator/CoreFoundation/property_list/xml_text.hpp"

#include <algorithm>

namespace cf {

namespace {

enum class Element {
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

struct ElementName {
    std::string_view name;
    Element element;
};
constexpr ElementName element_names[] = {
    {"key", Element::key},      {"string", Element::string},  {"integer", Element::integer},
    {"true", Element::is_true}, {"false", Element::is_false}, {"dict", Element::dict},
    {"array", Element::array},  {"data", Element::data},      {"real", Element::real},
    {"date", Element::date},    {"plist", Element::plist},
};

constexpr std::string_view uid_key = "CF$UID";

struct Tag {
    ElementName const * name;
    bool is_empty;
};

bool is_container(Element element) {
    return element == Element::plist || element == Element::array || element == Element::dict;
}

// Keeps the containers under way on a stack of its own: the tag that plist is may nest without
// limit.
class XmlReader {
public:
    XmlReader(std::string_view document, PropertyListOptions options)
        : scanner_{document}
        , options_{options}
        , strings_{options} {}

    ~XmlReader() {
        for (auto const * const value : values_) {
            release(object_of(value));
        }
    }
    XmlReader(XmlReader const &) = delete;
    XmlReader & operator=(XmlReader const &) = delete;

    OwnedReference read() {
        skip_prolog();
        read_element();
        while (!frames_.empty()) {
            if (find_open_tag()) {
                read_element();
            } else {
                close_container();
            }
        }
        OwnedReference root{values_.back()};
        values_.pop_back();
        return root;
    }

private:
    // A container under way; its children are the values from `first` on, those of a dict keys
    // and values in turn.
    struct Frame {
        ElementName const * name;
        std::size_t first;
    };

    void skip_prolog();
    void skip_comment();
    void skip_processing_instruction();
    void skip_document_type();
    bool find_open_tag();
    Tag read_tag();
    void read_close_tag(std::string_view name);
    void read_element();
    void open_container(ElementName const & name);
    void close_container();
    CFTypeRef read_content(ElementName const & name);
    CFTypeRef empty_element(ElementName const & name);
    CFTypeRef read_boolean(ElementName const & name, CFBooleanRef value);
    CFTypeRef create_array(std::span<CFTypeRef const> elements);
    CFTypeRef create_dictionary(std::span<CFTypeRef const> keys_and_values);
    void add(CFTypeRef value, Element element);

    bool awaits_value() const;
    [[noreturn]] void fail_without_element();

    XmlScanner scanner_;
    PropertyListOptions options_;
    PropertyListStrings strings_;
    std::vector<Frame> frames_;
    std::vector<CFTypeRef> values_;
    std::size_t depth_ = 0; // of array and dict
};

// Ends behind the "<" of the first element.
void XmlReader::skip_prolog() {
    for (;;) {
        scanner_.skip_space();
        if (scanner_.left() < 2) {
            scanner_.fail("No XML content found");
        }
        if (scanner_.peek() != '<') {
            scanner_.fail(fmt::format("Unexpected character {} at line {}", scanner_.character(),
                                      scanner_.line()));
        }
        if (scanner_.rest().starts_with("<!--")) {
            skip_comment();
        } else if (scanner_.rest().starts_with("<!DOCTYPE")) {
            skip_document_type();
        } else if (scanner_.rest().starts_with("<?")) {
            skip_processing_instruction();
        } else {
            scanner_.skip(1);
            return;
        }
    }
}

void XmlReader::skip_comment() {
    constexpr std::string_view opening = "<!--";
    constexpr std::string_view closing = "-->";
    auto const end = scanner_.rest().find(closing, opening.size());
    if (end == std::string_view::npos) {
        scanner_.fail_on_line("Unterminated comment started on line");
    }
    scanner_.skip(end + closing.size());
}

void XmlReader::skip_processing_instruction() {
    constexpr std::string_view closing = "?>";
    auto const end = scanner_.rest().find(closing);
    if (end == std::string_view::npos || end + closing.size() == scanner_.left()) {
        scanner_.fail_on_line(
            "Encountered unexpected EOF while parsing the processing instruction begun on line");
    }
    scanner_.skip(end + closing.size());
}

void XmlReader::skip_document_type() {
    auto const end = scanner_.rest().find_first_of("[>");
    if (end == std::string_view::npos) {
        scanner_.fail("Encountered unexpected EOF while parsing DTD");
    }
    scanner_.skip(end);
    if (scanner_.peek() == '[') {
        scanner_.fail(fmt::format("Encountered unexpected character [ on line {} while parsing DTD",
                                  scanner_.line()));
    }
    scanner_.skip(1);
}

bool XmlReader::awaits_value() const {
    auto const & frame = frames_.back();
    return frame.name->element == Element::dict && (values_.size() - frame.first) % 2 == 1;
}

// The document ends, or its container does, where an element should stand.
void XmlReader::fail_without_element() {
    if (!frames_.empty() && awaits_value()) {
        scanner_.fail_on_line("Value missing for key inside <dict> at line");
    }
    scanner_.fail_at_end();
}

// Ends behind the "<" of an open tag, or before that of a close tag.
bool XmlReader::find_open_tag() {
    for (;;) {
        scanner_.skip_space();
        if (scanner_.at_end()) {
            fail_without_element();
        }
        auto const rest = scanner_.rest();
        if (rest.starts_with("</")) {
            return false;
        }
        if (rest.starts_with("<!--")) {
            skip_comment();
        } else if (rest.starts_with("<?")) {
            skip_processing_instruction();
        } else if (rest.front() == '<' && !rest.starts_with("<!")) {
            scanner_.skip(1);
            return true;
        } else {
            scanner_.skip(rest.front() == '<' ? 1 : 0);
            scanner_.fail(fmt::format(
                "Encountered unexpected character {} on line {} while looking for open tag",
                scanner_.character(), scanner_.line()));
        }
    }
}

// The tag up to its first ">", even if that stands in the value of an attribute.
Tag XmlReader::read_tag() {
    auto inside = scanner_.take_until('>');
    if (scanner_.at_end()) {
        fail_without_element();
    }
    scanner_.skip(1);
    auto const is_empty = inside.ends_with('/');
    inside.remove_suffix(is_empty ? 1 : 0);
    auto const name =
        inside.substr(0, static_cast<std::size_t>(
                             std::ranges::find_if(inside, XmlScanner::is_space) - inside.begin()));
    if (name.empty()) {
        scanner_.fail_on_line("Malformed tag on line");
    }
    auto const * const found = std::ranges::find(element_names, name, &ElementName::name);
    if (found == std::end(element_names)) {
        scanner_.fail(fmt::format("Encountered unknown tag {} on line {}", name, scanner_.line()));
    }
    return {found, is_empty};
}

void XmlReader::read_close_tag(std::string_view name) {
    constexpr std::string_view opening = "</";
    if (!scanner_.skip_if(opening)) {
        if (opening.starts_with(scanner_.rest())) {
            scanner_.fail_at_end();
        }
        scanner_.skip(scanner_.peek() == '<' ? 1 : 0);
        scanner_.fail(fmt::format(
            "Encountered unexpected character {} on line {} while looking for close tag",
            scanner_.character(), scanner_.line()));
    }
    if (!scanner_.skip_if(name)) {
        if (name.starts_with(scanner_.rest())) {
            scanner_.fail_at_end();
        }
        scanner_.fail(
            fmt::format("Close tag on line {} does not match open tag {}", scanner_.line(), name));
    }
    scanner_.skip_space();
    if (scanner_.at_end()) {
        scanner_.fail_at_end();
    }
    if (!scanner_.skip_if(">")) {
        scanner_.fail(
            fmt::format("Close tag on line {} does not match open tag {}", scanner_.line(), name));
    }
}

void XmlReader::read_element() {
    auto const tag = read_tag();
    if (tag.is_empty) {
        add(empty_element(*tag.name), tag.name->element);
    } else if (is_container(tag.name->element)) {
        open_container(*tag.name);
    } else {
        OwnedReference value{read_content(*tag.name)};
        read_close_tag(tag.name->name);
        add(value.release(), tag.name->element);
    }
}

CFTypeRef XmlReader::read_content(ElementName const & name) {
    switch (name.element) {
    case Element::key:
    case Element::string:
        return read_xml_string(scanner_, strings_);
    case Element::data:
        return read_xml_data(scanner_, options_);
    case Element::date:
        return read_xml_date(scanner_);
    case Element::real:
        return read_xml_real(scanner_);
    case Element::integer:
        return read_xml_integer(scanner_);
    case Element::is_true:
        return read_boolean(name, kCFBooleanTrue);
    default:
        return read_boolean(name, kCFBooleanFalse);
    }
}

CFTypeRef XmlReader::read_boolean(ElementName const & name, CFBooleanRef value) {
    constexpr std::string_view closing = "</";
    auto const is_cut_off = closing.starts_with(scanner_.rest());
    if (!is_cut_off && !scanner_.rest().starts_with(closing)) {
        scanner_.fail(
            fmt::format("Encountered non-empty <{}> on line {}", name.name, scanner_.line()));
    }
    return CFRetain(value);
}

CFTypeRef XmlReader::empty_element(ElementName const & name) {
    switch (name.element) {
    case Element::plist:
        scanner_.fail("Encountered empty plist tag");
    case Element::array:
        return create_array({});
    case Element::dict:
        return create_dictionary({});
    case Element::key:
    case Element::string:
        return strings_.from_utf8({});
    case Element::is_true:
        return CFRetain(kCFBooleanTrue);
    case Element::is_false:
        return CFRetain(kCFBooleanFalse);
    default:
        scanner_.fail(fmt::format("Encountered empty <{}> on line {}", name.name, scanner_.line()));
    }
}

void XmlReader::open_container(ElementName const & name) {
    if (name.element != Element::plist && ++depth_ > deepest_property_list) {
        scanner_.fail_on_line("Too many nested arrays or dictionaries, failing on line");
    }
    frames_.push_back({&name, values_.size()});
}

void XmlReader::close_container() {
    auto const frame = frames_.back();
    if (awaits_value()) {
        fail_without_element();
    }
    std::span<CFTypeRef const> const children{
        values_.begin() + static_cast<std::ptrdiff_t>(frame.first), values_.end()};
    if (frame.name->element == Element::plist && children.empty()) {
        scanner_.fail("Encountered empty plist tag");
    }
    read_close_tag(frame.name->name);
    auto const * container = children.empty() ? nullptr : children.front();
    if (frame.name->element != Element::plist) {
        container = frame.name->element == Element::array ? create_array(children)
                                                          : create_dictionary(children);
        --depth_;
    }
    values_.resize(frame.first);
    frames_.pop_back();
    add(container, frame.name->element);
}

CFTypeRef XmlReader::create_array(std::span<CFTypeRef const> elements) {
    return create_array_adopting(elements, options_.of_xml_container(elements.empty()));
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
CFTypeRef XmlReader::create_dictionary(std::span<CFTypeRef const> keys_and_values) {
    if (is_uid_entry(keys_and_values)) {
        auto const & number = *static_cast<CFNumberRef>(keys_and_values[1]);
        auto const value =
            number.is_wide() ? number.wide.low : static_cast<std::uint64_t>(number.integer);
        release(object_of(keys_and_values[0]));
        release(number);
        return create<KeyedArchiverUid>(static_cast<UInt32>(value));
    }
    auto * const dictionary =
        create_object_dictionary(static_cast<CFIndex>(keys_and_values.size() / 2),
                                 options_.of_xml_container(keys_and_values.empty()));
    for (; !keys_and_values.empty(); keys_and_values = keys_and_values.subspan(2)) {
        set_adopting(dictionary, keys_and_values[0], keys_and_values[1]);
    }
    return dictionary;
}

// Hands a complete element to its parent.
void XmlReader::add(CFTypeRef value, Element element) {
    values_.push_back(value);
    if (frames_.empty()) {
        return;
    }
    auto const & parent = frames_.back();
    auto const children = values_.size() - parent.first;
    if (parent.name->element == Element::plist && children > 1) {
        scanner_.fail(fmt::format(
            "Encountered unexpected element at line {} (plist can only include one object)",
            scanner_.line()));
    }
    if (parent.name->element == Element::dict && children % 2 == 1 && element != Element::key) {
        scanner_.fail_on_line("Found non-key inside <dict> at line");
    }
}

} // namespace

OwnedReference read_xml_property_list(std::string_view document, PropertyListOptions options) {
    return XmlReader{document, options}.read();
}

} // namespace cf
