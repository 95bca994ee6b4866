#include "launcher/internal_error_document.hpp"

#include "launcher/printable_text.hpp"

namespace launcher {

namespace {

constexpr std::string_view before_reason = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                           "<plist version=\"1.0\">\n"
                                           "<dict>\n"
                                           "\t<key>Type</key>\n"
                                           "\t<string>InternalError</string>\n"
                                           "\t<key>Value</key>\n"
                                           "\t<dict>\n"
                                           "\t\t<key>Code</key>\n"
                                           "\t\t<integer>1</integer>\n"
                                           "\t\t<key>Description</key>\n"
                                           "\t\t<string>Unknown error</string>\n"
                                           "\t\t<key>Domain</key>\n"
                                           "\t\t<string>qnrescue</string>\n"
                                           "\t\t<key>FailureReason</key>\n"
                                           "\t\t<string>";

constexpr std::string_view after_reason = "</string>\n"
                                          "\t</dict>\n"
                                          "</dict>\n"
                                          "</plist>\n"
                                          "\n";

void append_escaped(std::string & document, std::string_view text) {
    for (char const character : text) {
        switch (character) {
        case '&':
            document += "&amp;";
            break;
        case '<':
            document += "&lt;";
            break;
        case '>':
            document += "&gt;";
            break;
        default:
            document += character;
        }
    }
}

} // namespace

std::string internal_error_document(std::string_view reason) {
    std::string document(before_reason);
    append_escaped(document, printable(reason));
    document += after_reason;
    return document;
}

} // namespace launcher
