#include "tests/unit/helpers/output_capture.hpp"

#include "platform/cf_strings.hpp"

#include <chrono>
#include <functional>
#include <iostream>
#include <stdexcept>

namespace tests {

std::string shared_buffer::text() const {
    std::lock_guard const lock(mutex);
    return collected;
}

bool shared_buffer::wait_for(std::string_view sought) const {
    std::unique_lock lock(mutex);
    return written.wait_for(lock, std::chrono::seconds(30),
                            [&] { return collected.find(sought) != std::string::npos; });
}

shared_buffer::int_type shared_buffer::overflow(int_type character) {
    if (!traits_type::eq_int_type(character, traits_type::eof())) {
        char const written_one = traits_type::to_char_type(character);
        xsputn(&written_one, 1);
    }
    return traits_type::not_eof(character);
}

std::streamsize shared_buffer::xsputn(char const * characters, std::streamsize count) {
    std::lock_guard const lock(mutex);
    collected.append(characters, static_cast<std::size_t>(count));
    written.notify_all();
    return count;
}

int shared_buffer::sync() {
    ++flushes;
    return 0;
}

slow_reader::int_type slow_reader::overflow(int_type character) {
    return traits_type::not_eof(character);
}

std::streamsize slow_reader::xsputn(char const * characters, std::streamsize count) {
    std::string_view const text(characters, static_cast<std::size_t>(count));
    if (!held && text.find(sought) != std::string_view::npos) {
        held = true;
        reached.set_value();
        let_go.get_future().wait();
    }
    return count;
}

captured_streams::captured_streams()
    : real_out(std::cout.rdbuf(&out))
    , real_err(std::cerr.rdbuf(&err))
    , tied_to_err(std::cerr.tie(nullptr))
    , err_flags(std::cerr.flags()) {
    std::cerr << std::nounitbuf;
}

captured_streams::~captured_streams() {
    std::cerr.flags(err_flags);
    std::cerr.tie(tied_to_err);
    std::cout.rdbuf(real_out);
    std::cerr.rdbuf(real_err);
}

std::vector<document> parse_documents(std::string_view text) {
    constexpr std::string_view end = "</plist>\n\n";
    constexpr std::string_view beginning = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    std::vector<document> documents;
    while (!text.empty()) {
        auto const length = text.find(end);
        if (!text.starts_with(beginning) || length == std::string_view::npos) {
            throw std::invalid_argument("no whole document: " + std::string(text));
        }
        auto const bytes = text.substr(0, length + end.size() - 1);
        auto const root = read_plist(bytes);
        if (!qnrescue::is_a(root.get(), CFDictionaryGetTypeID())) {
            throw std::invalid_argument("no dictionary: " + std::string(bytes));
        }
        auto const dictionary = static_cast<CFDictionaryRef>(root.get());
        auto const type = CFDictionaryGetValue(dictionary, CFSTR("Type"));
        auto const value = CFDictionaryGetValue(dictionary, CFSTR("Value"));
        if (CFDictionaryGetCount(dictionary) != 2 || !qnrescue::is_a(type, CFStringGetTypeID()) ||
            value == nullptr) {
            throw std::invalid_argument("not Type and Value: " + std::string(bytes));
        }
        documents.push_back({qnrescue::MakeString(static_cast<CFStringRef>(type)),
                             qnrescue::retain<CFTypeRef>(value)});
        text.remove_prefix(length + end.size());
    }
    return documents;
}

std::vector<std::string> lines_of(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        auto const length = text.find('\n');
        if (length == std::string_view::npos) {
            throw std::invalid_argument("no whole line: " + std::string(text));
        }
        lines.emplace_back(text.substr(0, length));
        text.remove_prefix(length + 1);
    }
    return lines;
}

output_capture::output_capture(bool debug)
    : output(std::make_shared<qnrescue::output_str_state>(std::nullopt)) {
    output->set_debug(debug);
    writer = std::thread(&qnrescue::output_str_state::loop, std::ref(*output));
}

output_capture::~output_capture() {
    finish();
}

void output_capture::finish() {
    if (writer.joinable()) {
        output->quit();
        writer.join();
    }
}

std::string output_capture::out() {
    finish();
    return streams.out.text();
}

std::vector<document> output_capture::documents() {
    return parse_documents(out());
}

std::vector<std::string> output_capture::debug_lines() {
    finish();
    return lines_of(streams.err.text());
}

} // namespace tests
