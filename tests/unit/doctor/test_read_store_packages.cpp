#include "doctor/read_store_packages.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <string>
#include <string_view>

namespace {

constexpr std::wstring_view first_package = L"AppleInc.iTunes_1_x64__nzyj5cx40ttqa";
constexpr std::wstring_view second_package = L"AppleInc.iTunes_2_x64__nzyj5cx40ttqa";

// As Windows does: fails and says the sizes while the buffers are too small.
LONG WINAPI packages_of_itunes(wchar_t const * family, std::uint32_t * count, wchar_t ** names,
                               std::uint32_t * length, wchar_t * buffer) {
    auto const needed =
        static_cast<std::uint32_t>(first_package.size() + second_package.size() + 2);
    if (std::wstring_view(family) != L"AppleInc.iTunes_nzyj5cx40ttqa") {
        *count = 0;
        *length = 0;
        return ERROR_SUCCESS;
    }
    bool const is_large = *count >= 2 && *length >= needed;
    *count = 2;
    *length = needed;
    if (!is_large) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    for (auto const & package : {first_package, second_package}) {
        *names++ = buffer;
        buffer = std::ranges::copy(package, buffer).out;
        *buffer++ = L'\0';
    }
    return ERROR_SUCCESS;
}

LONG WINAPI path_of_first(wchar_t const * full_name, std::uint32_t * length, wchar_t * path) {
    constexpr wchar_t text[] = L"C:\\Program Files\\WindowsApps\\日本";
    if (full_name != first_package) {
        return ERROR_NOT_FOUND;
    }
    if (*length < std::size(text)) {
        return ERROR_INSUFFICIENT_BUFFER;
    }
    std::wmemcpy(path, text, std::size(text));
    return ERROR_SUCCESS;
}

TEST(read_store_packages, of_the_two_apps) {
    auto const packages = doctor::read_store_packages({packages_of_itunes, path_of_first});
    ASSERT_EQ(2U, packages.size());
    EXPECT_EQ("AppleInc.iTunes_1_x64__nzyj5cx40ttqa", packages[0].full_name);
    EXPECT_EQ(L"C:\\Program Files\\WindowsApps\\日本", packages[0].folder.native());
    EXPECT_EQ("AppleInc.iTunes_2_x64__nzyj5cx40ttqa", packages[1].full_name);
    EXPECT_TRUE(packages[1].folder.empty());
}

TEST(read_store_packages, without_the_functions) {
    EXPECT_TRUE(doctor::read_store_packages({}).empty());
}

TEST(read_store_packages, finds_both_functions_or_none) {
    auto const found = doctor::find_packaging_functions();
    EXPECT_EQ(found.packages_of_family == nullptr, found.path_of_package == nullptr);
}

} // namespace
