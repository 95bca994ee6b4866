#include "launcher/registry_keys.hpp"

#include "launcher/registry_library.hpp"

#include <array>
#include <memory>
#include <type_traits>

namespace launcher {

namespace {

constexpr std::size_t longest_name = 255;

struct close_key {
    void operator()(HKEY key) const {
        reinterpret_cast<decltype(&RegCloseKey)>(registry_function("RegCloseKey"))(key);
    }
};
using key_owner = std::unique_ptr<std::remove_pointer_t<HKEY>, close_key>;

key_owner open_key(HKEY root, wchar_t const * path) {
    auto const open =
        reinterpret_cast<decltype(&RegOpenKeyExW)>(registry_function("RegOpenKeyExW"));
    HKEY key = nullptr;
    return key_owner(open(root, path, 0, KEY_ENUMERATE_SUB_KEYS, &key) == ERROR_SUCCESS ? key
                                                                                        : nullptr);
}

} // namespace

std::vector<std::wstring> registry_keys(HKEY root, wchar_t const * key) {
    std::vector<std::wstring> names;
    auto const opened = open_key(root, key);
    if (!opened) {
        return names;
    }
    auto const enumerate =
        reinterpret_cast<decltype(&RegEnumKeyExW)>(registry_function("RegEnumKeyExW"));
    std::array<wchar_t, longest_name + 1> name;
    for (DWORD index = 0;; ++index) {
        auto length = static_cast<DWORD>(name.size());
        if (enumerate(opened.get(), index, name.data(), &length, nullptr, nullptr, nullptr,
                      nullptr) != ERROR_SUCCESS) {
            return names;
        }
        names.emplace_back(name.data(), length);
    }
}

} // namespace launcher
