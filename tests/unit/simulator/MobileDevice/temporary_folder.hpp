// A folder for one test, whose name has letters of several alphabets.
#pragma once

#include "simulator/MobileDevice/files.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#endif

// Sets a variable of this process, or removes it; both texts are in UTF-8.
inline void set_environment(std::string const & name, std::string const & value) {
#if defined(_WIN32)
    SetEnvironmentVariableW(mobile_device::make_path(name).c_str(),
                            value.empty() ? nullptr : mobile_device::make_path(value).c_str());
#else
    value.empty() ? unsetenv(name.c_str()) : setenv(name.c_str(), value.c_str(), 1);
#endif
}

inline std::string read_text(std::filesystem::path const & path) {
    std::ifstream file{path, std::ios::binary};
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

inline std::vector<std::string> read_lines(std::filesystem::path const & path) {
    std::istringstream content{read_text(path)};
    std::vector<std::string> lines;
    for (std::string line; std::getline(content, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The process of a death test shares the folder of the process that started it.
class temporary_folder {
public:
    temporary_folder() {
        static char const variable[] = "MOBILEDEVICE_TEST_FOLDER";
        if (auto const parent = mobile_device::environment_variable(variable)) {
            m_path = mobile_device::make_path(*parent);
            m_own = false;
            return;
        }
        auto const unique = std::chrono::system_clock::now().time_since_epoch().count();
        m_path = std::filesystem::temp_directory_path() /
                 mobile_device::make_path("mobiledevice Größe 試験 " + std::to_string(unique));
        std::filesystem::create_directories(m_path);
        set_environment(variable, utf8(""));
    }
    temporary_folder(temporary_folder const &) = delete;
    temporary_folder & operator=(temporary_folder const &) = delete;
    ~temporary_folder() {
        if (m_own) {
            set_environment("MOBILEDEVICE_TEST_FOLDER", "");
            std::error_code ignored;
            std::filesystem::remove_all(m_path, ignored);
        }
    }

    std::filesystem::path operator/(std::string_view name) const {
        return name.empty() ? m_path : m_path / mobile_device::make_path(name);
    }
    std::string utf8(std::string_view name) const {
        auto const text = (*this / name).u8string();
        return {text.begin(), text.end()};
    }
    // Creates a file and answers its path in UTF-8.
    std::string write(std::string_view name, std::string_view content) const {
        std::ofstream file{*this / name, std::ios::binary};
        file.write(content.data(), static_cast<std::streamsize>(content.size()));
        return utf8(name);
    }

private:
    std::filesystem::path m_path;
    bool m_own = true;
};
