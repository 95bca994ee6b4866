// Drives the tool: starts the qnrescue.exe beside libqnrescuelib.dll with its own arguments, reads
// the documents from a pipe as they come, and prints a line for each. Its exit status is the
// tool's.
//
//     host --restore C:\firmware\update.ipsw --ecid 001E2D4C0A91C026
//
// It links libqnrescuelib.dll, for the texts of restore steps and errors, and libdevforwardmin.dll,
// which forwards to CoreFoundation. Windows must find these two and the two platform libraries.
// From the package's top folder:
//
//     cmake -S examples/cpp -B host -D CMAKE_PREFIX_PATH=%CD%
//     cmake --build host
//     set PATH=%CD%\simulator;%PATH%

#include <QNRescue/CoreFoundation.h>
#include <QNRescue/qnrescue.h>

#include <windows.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace {

struct release {
    void operator()(void const * object) const { CFRelease(object); }
};
template <class Reference>
using owner = std::unique_ptr<std::remove_pointer_t<Reference>, release>;

struct close {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using handle = std::unique_ptr<void, close>;

[[noreturn]] void fail(char const * what) {
    auto const error = GetLastError();
    throw std::runtime_error(std::string(what) + ": error " + std::to_string(error));
}

handle checked(HANDLE value, char const * what) {
    if (value == INVALID_HANDLE_VALUE || value == nullptr) {
        fail(what);
    }
    return handle(value);
}

// --- Documents

// Returns the entry of a dictionary; null if it is missing or has another type, or if the first
// argument is not a dictionary.
CFTypeRef entry(CFTypeRef dictionary, char const * key, CFTypeID type) {
    if (dictionary == nullptr || CFGetTypeID(dictionary) != CFDictionaryGetTypeID()) {
        return nullptr;
    }
    auto const value = CFDictionaryGetValue(static_cast<CFDictionaryRef>(dictionary),
                                            __CFStringMakeConstantString(key));
    return value != nullptr && CFGetTypeID(value) == type ? value : nullptr;
}

std::string utf8(CFTypeRef string) {
    if (string == nullptr) {
        return {};
    }
    auto const text = static_cast<CFStringRef>(string);
    auto const size =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(text), kCFStringEncodingUTF8) + 1;
    std::string bytes(static_cast<std::size_t>(size), '\0');
    CFStringGetCString(text, bytes.data(), size, kCFStringEncodingUTF8);
    return bytes.c_str();
}

int integer(CFTypeRef number) {
    SInt32 value = 0;
    if (number != nullptr) {
        CFNumberGetValue(static_cast<CFNumberRef>(number), kCFNumberSInt32Type, &value);
    }
    return value;
}

// Both functions of the library return a new reference, which is released here.
std::string operation_text(int code) {
    return utf8(owner<CFStringRef>(AMRLocalizedCopyStringForAMROperation(code)).get());
}
std::string error_text(int code) {
    return utf8(owner<CFStringRef>(AMRLocalizedCopyStringForAMRError(code)).get());
}

std::string describe_restore(CFTypeRef report) {
    auto line = utf8(entry(report, "Status", CFStringGetTypeID()));
    if (auto const step = integer(entry(report, "Operation", CFNumberGetTypeID()))) {
        line += ", " + operation_text(step);
    }
    line += ", " + std::to_string(integer(entry(report, "Progress", CFNumberGetTypeID()))) + " %";
    if (auto const error = entry(report, "Error", CFDictionaryGetTypeID())) {
        line += ": " + error_text(integer(entry(error, "Code", CFNumberGetTypeID())));
    }
    return line;
}

std::string describe_list(CFTypeRef list) {
    auto const ecids = static_cast<CFArrayRef>(list);
    std::string line;
    for (CFIndex i = 0, count = list ? CFArrayGetCount(ecids) : 0; i < count; ++i) {
        line += (i == 0 ? "" : " ") + utf8(CFArrayGetValueAtIndex(ecids, i));
    }
    return line;
}

std::string describe(CFTypeRef document) {
    auto const type = utf8(entry(document, "Type", CFStringGetTypeID()));
    if (type == "DeviceList") {
        return type + ": " + describe_list(entry(document, "Value", CFArrayGetTypeID()));
    }
    auto const value = entry(document, "Value", CFDictionaryGetTypeID());
    if (type == "RestoreStatus") {
        return type + ": " + describe_restore(value);
    }
    if (type == "DeviceInfo") {
        return type + ": " + utf8(entry(value, "ECID", CFStringGetTypeID()));
    }
    if (type == "InternalError") {
        return type + ": " + utf8(entry(value, "FailureReason", CFStringGetTypeID()));
    }
    return type;
}

void show(std::string_view text) {
    owner<CFDataRef> const data(
        CFDataCreateWithBytesNoCopy(nullptr, reinterpret_cast<UInt8 const *>(text.data()),
                                    static_cast<CFIndex>(text.size()), kCFAllocatorNull));
    owner<CFTypeRef> const document(CFPropertyListCreateWithData(
        nullptr, data.get(), kCFPropertyListImmutable, nullptr, nullptr));
    std::printf("%s\n", describe(document.get()).c_str());
    std::fflush(stdout);
}

// --- The pipe and the process

struct pipe_ends {
    handle reading;
    handle writing;
};

// Returns the two ends of a pipe. The tool needs a writing end that it inherits and that is opened
// for overlapped writing.
pipe_ends make_pipe() {
    auto const name = L"\\\\.\\pipe\\qnrescue-host-" + std::to_wstring(GetCurrentProcessId());
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    auto reading =
        checked(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_FIRST_PIPE_INSTANCE,
                                 PIPE_TYPE_BYTE | PIPE_WAIT, 1, 0, 65536, 0, nullptr),
                "no pipe");
    auto writing = checked(CreateFileW(name.c_str(), GENERIC_WRITE, 0, &inherited, OPEN_EXISTING,
                                       FILE_FLAG_OVERLAPPED, nullptr),
                           "no writing end of the pipe");
    return {std::move(reading), std::move(writing)};
}

std::wstring path_of_tool() {
    std::wstring path(32768, L'\0'); // the longest path of Windows
    auto const length = GetModuleFileNameW(GetModuleHandleW(L"libqnrescuelib.dll"), path.data(),
                                           static_cast<DWORD>(path.size()));
    return path.substr(0, path.find_last_of(L'\\', length) + 1) + L"qnrescue.exe";
}

// Returns the command line without this program's name, with its quotes.
std::wstring own_arguments() {
    std::wstring_view line = GetCommandLineW();
    bool const quoted = line.starts_with(L'"');
    auto const end = line.find(quoted ? L'"' : L' ', quoted ? 1 : 0);
    return end == line.npos ? L"" : std::wstring(line.substr(end + 1));
}

handle start_tool(HANDLE pipe) {
    auto const path = path_of_tool();
    auto line = L'"' + path + L"\" " + own_arguments() + L" --output-pipe " +
                std::to_wstring(reinterpret_cast<std::intptr_t>(pipe));
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(path.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                        &startup, &process)) {
        fail("qnrescue.exe does not start");
    }
    handle const thread(process.hThread);
    return handle(process.hProcess);
}

// Shows each document as soon as it is complete, until the tool closes its end of the pipe.
void show_documents(HANDLE pipe) {
    constexpr std::string_view end_of_document = "</plist>\n\n";
    std::string text;
    char buffer[4096];
    DWORD count = 0;
    while (ReadFile(pipe, buffer, sizeof buffer, &count, nullptr)) {
        text.append(buffer, count);
        for (auto end = text.find(end_of_document); end != text.npos;
             end = text.find(end_of_document)) {
            show(std::string_view(text).substr(0, end + end_of_document.size()));
            text.erase(0, end + end_of_document.size());
        }
    }
}

DWORD run() {
    auto [reading, writing] = make_pipe();
    auto const tool = start_tool(writing.get());
    writing.reset(); // otherwise the pipe would stay open when the tool ends
    show_documents(reading.get());
    WaitForSingleObject(tool.get(), INFINITE);
    DWORD status = 0;
    GetExitCodeProcess(tool.get(), &status);
    return status;
}

} // namespace

int main() {
    try {
        return static_cast<int>(run());
    } catch (std::exception const & error) {
        std::fprintf(stderr, "host: %s\n", error.what());
        return 99;
    }
}
