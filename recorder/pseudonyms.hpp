// Replaces what identifies a device or a person.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace recorder {

// Gives every identity a pseudonym of the same form, which depends on the identity alone: it is the
// same in every recording, unless two identities of one recording would share it.
class pseudonyms {
public:
    // Returns a number with as many hexadecimal digits; 0 stays 0.
    std::uint64_t ecid(std::uint64_t real);

    // Returns a text with other digits and letters at the same places.
    std::string serial_number(std::string const & real);

    // Returns a text with other digits; identities that are known by now are replaced as a whole.
    std::string product_string(std::string const & real);

    // Returns the path with other names; separators, drives and a usual extension such as ".ipsw"
    // stay.
    std::string path(std::string const & real);

    // Returns a text in which the identities that are known by now, and paths, are replaced.
    std::string text(std::string const & real);

    // Returns the pseudonym of a decimal number that is an ECID known by now, else the number.
    std::string integer(std::string const & real) const;

private:
    std::string unique(std::string const & kind, std::string const & real,
                       std::function<std::string(std::string const & seed)> const & disguise);
    std::string name(std::string const & real);
    void learn(std::string const & real, std::string const & pseudonym);
    std::string replace_known(std::string_view real,
                              std::function<std::string(std::string_view)> const & others);

    using pseudonyms_by_identity = std::map<std::string, std::string, std::less<>>;

    pseudonyms_by_identity::const_iterator longest_at_begin(std::string_view text) const;

    std::map<std::string, std::string> given; // by kind and identity
    std::set<std::string> taken;              // kinds and pseudonyms
    pseudonyms_by_identity known;             // to be replaced inside texts
};

// Returns whether the whole text is an absolute path.
bool is_path(std::string_view text);

} // namespace recorder
