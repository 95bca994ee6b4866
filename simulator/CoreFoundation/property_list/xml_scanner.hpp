// Goes through the characters of an XML document, and reports what is wrong with them.
#pragma once

#include <fmt/format.h>

#include <cstring>
#include <string>
#include <string_view>

namespace cf {

class xml_scanner {
public:
    // The document is UTF-8 that need not be valid.
    explicit xml_scanner(std::string_view document)
        : begin{document.data()}
        , current{document.data()}
        , end{document.data() + document.size()} {}

    bool at_end() const { return current == end; }
    char peek() const { return *current; }
    std::string_view rest() const { return {current, left()}; }
    std::size_t left() const { return static_cast<std::size_t>(end - current); }
    void skip(std::size_t count) { current += count; }
    bool skip_if(std::string_view text) {
        if (!rest().starts_with(text)) {
            return false;
        }
        skip(text.size());
        return true;
    }
    void skip_space() {
        while (!at_end() && is_space(peek())) {
            ++current;
        }
    }
    // Returns the text before the character, which becomes the current one; or all the rest.
    std::string_view take_until(char character) {
        auto const * const found =
            static_cast<char const *>(std::memchr(current, character, left()));
        auto const taken =
            rest().substr(0, static_cast<std::size_t>((found ? found : end) - current));
        skip(taken.size());
        return taken;
    }

    static constexpr bool is_space(char character) {
        return character == ' ' || character == '\t' || character == '\n' || character == '\r';
    }

    // Returns the number of the current line, from 1.
    std::size_t line() const;

    // Returns the current character, for a message.
    std::string character() const;

    // Throw property_list_syntax_error. The text of the second ends with the number of the current
    // line.
    [[noreturn]] void fail(std::string text) const;
    [[noreturn]] void fail_on_line(std::string_view text) const;
    [[noreturn]] void fail_at_end() const;

private:
    char const * begin;
    char const * current;
    char const * end;
};

} // namespace cf
