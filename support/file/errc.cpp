#include "support/file/errc.hpp"

#include <array>
#include <string>

#ifdef __GNUC__
// The destructor of the library's category is protected: no one deletes a category through it.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

namespace QN::file {

namespace {

constexpr std::array texts{
    "Success",
    "File is too large to fit into the buffer",
    "Could not allocate buffer for file",
    "Could not obtain file lock",
};

class category final : public boost::system::error_category {
public:
    char const * name() const noexcept override { return "QN::file"; }

    std::string message(int code) const override {
        auto const index = static_cast<std::size_t>(code);
        return index < texts.size() ? texts[index] : "Unknown error " + std::to_string(code);
    }
};

} // namespace

boost::system::error_category const & file_category() noexcept {
    // Never destroyed: an error code may be looked at while the process ends.
    // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): no category, no process
    static auto const & instance = *new category;
    return instance;
}

boost::system::error_code make_error_code(errc code) noexcept {
    return {static_cast<int>(code), file_category()};
}

} // namespace QN::file
