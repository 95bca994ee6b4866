#include "support/file/openable_name.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using QN::file::detail::openable_name;

TEST(openable_name, leaves_short_paths_alone) {
    for (std::wstring const path :
         {LR"(C:\folder\file)", L"file", L"../folder/file", L"", L"NUL"}) {
        EXPECT_EQ(openable_name(path), path);
    }
}

TEST(openable_name, makes_long_paths_absolute_and_plain) {
    std::wstring const part(150, L'x');
    EXPECT_EQ(openable_name(LR"(C:\)" + part + LR"(\)" + part),
              LR"(\\?\C:\)" + part + LR"(\)" + part);
    EXPECT_EQ(openable_name(L"C:/" + part + L"/./y/../" + part),
              LR"(\\?\C:\)" + part + LR"(\)" + part);
    EXPECT_EQ(openable_name(LR"(\\server\share\)" + part + LR"(\)" + part),
              LR"(\\?\UNC\server\share\)" + part + LR"(\)" + part);
}

TEST(openable_name, takes_long_paths_that_need_no_change) {
    std::wstring const part(300, L'x');
    for (auto const & path : {LR"(\\?\C:\)" + part, LR"(\\.\pipe\)" + part}) {
        EXPECT_EQ(openable_name(path), path);
    }
}

TEST(openable_name, starts_at_260_characters) {
    auto const shorter = L"C:\\" + std::wstring(256, L'x');
    EXPECT_EQ(openable_name(shorter), shorter);
    EXPECT_EQ(openable_name(shorter + L'x'), LR"(\\?\)" + shorter + L'x');
}

} // namespace
