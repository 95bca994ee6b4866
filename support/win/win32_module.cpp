#include "support/win/win32_module.hpp"

#include "support/filesystem.hpp"
#include "support/win/win32_error.hpp"

#include <fmt/format.h>

#include <utility>

namespace QN::win {

namespace {

// A pointer into the first 64 KiB is an ordinal, which points to no text; null is the ordinal 0.
bool is_ordinal(char const * name) {
    return IS_INTRESOURCE(name);
}

std::string text_of(char const * proc) {
    return is_ordinal(proc) ? fmt::format("#{}", reinterpret_cast<ULONG_PTR>(proc)) : proc;
}

} // namespace

win32_module::win32_module(char const * library)
    : win32_module(std::string(is_ordinal(library) ? "" : library)) {}

win32_module::win32_module(std::string library)
    : name(std::move(library))
    , module(LoadLibraryA(name.c_str())) {
    throw_unless_loaded(GetLastError());
}

win32_module::win32_module(std::wstring const & path, unsigned long flags)
    : name(path_to_utf8(path))
    , module(LoadLibraryExW(path.c_str(), nullptr, flags)) {
    throw_unless_loaded(GetLastError());
}

void win32_module::throw_unless_loaded(unsigned long error) const {
    if (module == nullptr) {
        throw win32_error(fmt::format("LoadLibrary(\"{}\")", name), error);
    }
}

win32_module::win32_module(win32_module && other) noexcept {
    *this = std::move(other);
}

win32_module & win32_module::operator=(win32_module && other) noexcept {
    std::swap(module, other.module);
    std::swap(name, other.name);
    return *this;
}

win32_module::~win32_module() {
    if (module != nullptr) {
        FreeLibrary(module);
    }
}

void * win32_module::internal_get_proc_address(char const * proc) const {
    auto const address = find_proc_address(proc);
    if (address == nullptr) {
        auto const error = GetLastError();
        throw win32_error(fmt::format("GetProcAddress(\"{}\", \"{}\")", name, text_of(proc)),
                          error);
    }
    return address;
}

void * win32_module::find_proc_address(char const * proc) const noexcept {
    return reinterpret_cast<void *>(GetProcAddress(module, proc));
}

} // namespace QN::win
