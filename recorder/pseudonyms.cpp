#include "recorder/pseudonyms.hpp"

#include <boost/uuid/name_generator_sha1.hpp>
#include <boost/uuid/uuid.hpp>

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

namespace recorder {
namespace {

constexpr std::size_t shortest_to_replace = 6; // a shorter text may well mean something else

// Any other may be a name.
constexpr std::string_view usual_extensions[] = {
    ".bbfw", ".bin", ".der", ".dll",   ".dmg",  ".exe", ".im4p", ".img4", ".ipsw",
    ".json", ".log", ".pem", ".plist", ".shsh", ".txt", ".xml",  ".zip",
};
constexpr int attempts_limit = 1000;

// Endless bytes that depend on the seed alone and do not reveal it.
class byte_stream {
public:
    explicit byte_stream(std::string seed)
        : source{std::move(seed)} {}

    unsigned next() {
        if (used == block.size()) {
            boost::uuids::name_generator_sha1 const generate{boost::uuids::uuid{}};
            block = generate(fmt::format("{}#{}", source, blocks++));
            used = 0;
        }
        auto const at = used++;
        // Two bytes hold the version of a UUID.
        return at == 6 || at == 8 ? next() : *(block.begin() + at);
    }

private:
    std::string source;
    boost::uuids::uuid block{};
    std::size_t used = boost::uuids::uuid::static_size();
    int blocks = 0;
};

bool is_digit(char character) {
    return character >= '0' && character <= '9';
}

bool is_letter(char character) {
    return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
}

bool is_separator(char character) {
    return character == '/' || character == '\\';
}

char other_character(char real, unsigned byte) {
    return is_digit(real)                     ? static_cast<char>('0' + byte % 10)
           : real >= 'A' && real <= 'Z'       ? static_cast<char>('A' + byte % 26)
           : is_letter(real) || (real & 0x80) ? static_cast<char>('a' + byte % 26)
                                              : real;
}

// Every code point beyond ASCII becomes one letter.
std::string other_characters(std::string_view real, std::string const & seed) {
    byte_stream bytes{seed};
    std::string result;
    for (auto const character : real) {
        if ((static_cast<unsigned char>(character) & 0xC0) != 0x80) {
            result += other_character(character, bytes.next());
        }
    }
    return result;
}

std::string other_digits(std::string_view real, std::string const & seed) {
    byte_stream bytes{seed};
    std::string result{real};
    for (auto & character : result) {
        if (is_digit(character)) {
            character = static_cast<char>('0' + bytes.next() % 10);
        }
    }
    return result;
}

// Keeps the number of digits, none of which is a leading zero.
std::string other_hexadecimal(std::string_view real, std::string const & seed) {
    byte_stream bytes{seed};
    std::string result;
    for (std::size_t index = 0; index < real.size(); ++index) {
        result += fmt::format("{:X}", index == 0 ? 1 + bytes.next() % 15 : bytes.next() % 16);
    }
    return result;
}

std::string lower_case(std::string text) {
    std::ranges::transform(text, text.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                    : character;
    });
    return text;
}

// Applies the function to each part between the separators; keeps the separators.
std::string for_each_part(std::string_view text, auto is_between, auto change) {
    std::string result;
    while (!text.empty()) {
        auto const end = std::ranges::find_if(text, is_between) - text.begin();
        auto const length = static_cast<std::size_t>(end);
        result += length == 0 ? std::string{} : change(std::string{text.substr(0, length)});
        text.remove_prefix(length);
        if (!text.empty()) {
            result += text.front();
            text.remove_prefix(1);
        }
    }
    return result;
}

bool is_drive(std::string_view text) {
    return text.size() == 2 && is_letter(text[0]) && text[1] == ':';
}

// Returns whether a word of a text is a path, ends in one, or is a part of one with blanks. The
// names of files in a bundle, and addresses of servers, are none.
bool reveals_path(std::string_view word) {
    bool const is_address =
        word.find("://") != std::string_view::npos && !word.starts_with("file:");
    auto const begins_path = [](char before, char character) {
        return character == '/' &&
               std::string_view{"(=:[{<,;"}.find(before) != std::string_view::npos;
    };
    return is_path(word) || word.find('\\') != std::string_view::npos ||
           (!is_address && std::ranges::adjacent_find(word, begins_path) != word.end());
}

} // namespace

bool is_path(std::string_view text) {
    return text.starts_with("\\\\") || (text.size() > 1 && text[0] == '/' && text[1] != '/') ||
           (text.size() > 2 && is_drive(text.substr(0, 2)) && is_separator(text[2]));
}

std::uint64_t pseudonyms::ecid(std::uint64_t real) {
    if (real == 0) {
        return 0;
    }
    auto const digits = fmt::format("{:X}", real);
    auto const pseudonym = unique(
        "ECID", digits, [&](std::string const & seed) { return other_hexadecimal(digits, seed); });
    auto const result = std::stoull(pseudonym, nullptr, 16);
    for (auto const width : {0, 16}) {
        auto const shown = fmt::format("{:0{}X}", real, width);
        auto const hidden = fmt::format("{:0{}X}", result, width);
        learn(shown, hidden);
        learn(lower_case(shown), lower_case(hidden));
    }
    learn(fmt::to_string(real), fmt::to_string(result));
    auto const with_sign = [](std::uint64_t number) {
        return fmt::to_string(static_cast<std::int64_t>(number));
    };
    learn(with_sign(real), with_sign(result));
    return result;
}

std::string pseudonyms::serial_number(std::string const & real) {
    auto result = unique("serial number", real,
                         [&](std::string const & seed) { return other_characters(real, seed); });
    learn(real, result);
    return result;
}

std::string pseudonyms::product_string(std::string const & real) {
    auto result = replace_known(real, [&](std::string_view part) {
        return other_digits(part, "product string:" + std::string{part});
    });
    learn(real, result);
    return result;
}

std::string pseudonyms::path(std::string const & real) {
    auto const extension = std::min(real.size(), real.rfind('.'));
    bool const keeps = std::ranges::find(usual_extensions, lower_case(real.substr(extension))) !=
                       std::end(usual_extensions);
    auto const kept = keeps ? extension : real.size();
    auto result = for_each_part(std::string_view{real}.substr(0, kept), is_separator,
                                [this](std::string const & part) {
                                    return is_drive(part) ? part : name(part);
                                }) +
                  real.substr(kept);
    learn(real, result);
    return result;
}

std::string pseudonyms::text(std::string const & real) {
    if (is_path(real)) {
        return path(real);
    }
    auto const is_blank = [](char character) {
        return character == ' ' || character == '\n' || character == '\t' || character == '"' ||
               character == '\'';
    };
    return replace_known(real, [&](std::string_view part) {
        return for_each_part(part, is_blank, [this](std::string const & word) {
            return reveals_path(word) ? path(word) : word;
        });
    });
}

std::string pseudonyms::integer(std::string const & real) const {
    auto const found = known.find(real);
    return found == known.end() ? real : found->second;
}

std::string
pseudonyms::unique(std::string const & kind, std::string const & real,
                   std::function<std::string(std::string const & seed)> const & disguise) {
    auto const [found, is_new] = given.try_emplace(kind + ':' + real);
    for (int attempt = 0; is_new; ++attempt) {
        auto const candidate = disguise(fmt::format("{}:{}:{}", kind, real, attempt));
        auto const candidate_of_kind = fmt::format("{}:{}", kind, candidate);
        bool const good = candidate != real && !taken.contains(candidate_of_kind);
        if (good || attempt == attempts_limit) {
            taken.insert(candidate_of_kind);
            found->second = candidate;
            break;
        }
    }
    return found->second;
}

std::string pseudonyms::name(std::string const & real) {
    return unique("name", real,
                  [&](std::string const & seed) { return other_characters(real, seed); });
}

void pseudonyms::learn(std::string const & real, std::string const & pseudonym) {
    if (real.size() >= shortest_to_replace) {
        known.try_emplace(real, pseudonym);
    }
}

// Returns the longest identity with which the text begins, or the end. The one before the text in
// the order is it, or shares with it all that the text can begin with.
pseudonyms::pseudonyms_by_identity::const_iterator
pseudonyms::longest_at_begin(std::string_view text) const {
    while (text.size() >= shortest_to_replace) {
        auto const after = known.upper_bound(text);
        if (after == known.begin()) {
            break;
        }
        auto const before = std::prev(after);
        if (text.starts_with(before->first)) {
            return before;
        }
        auto const differs = std::ranges::mismatch(text, before->first).in1;
        text = text.substr(0, static_cast<std::size_t>(differs - text.begin()));
    }
    return known.end();
}

// The longest identity that begins at a place is replaced there.
std::string pseudonyms::replace_known(std::string_view real,
                                      std::function<std::string(std::string_view)> const & others) {
    std::string result;
    std::size_t done = 0;
    for (std::size_t at = 0; at < real.size();) {
        auto const found = longest_at_begin(real.substr(at));
        if (found == known.end()) {
            ++at;
            continue;
        }
        result += others(real.substr(done, at - done)) + found->second;
        at += found->first.size();
        done = at;
    }
    return result + others(real.substr(done));
}

} // namespace recorder
