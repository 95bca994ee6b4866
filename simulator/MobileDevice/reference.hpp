// Ownership of CoreFoundation references.
#pragma once

#include "platform/CoreFoundation.h"

#include <utility>

namespace mobile_device {

// Owns one reference of a CoreFoundation object, or nothing.
template <typename Ref>
class reference {
public:
    reference() = default;
    // Takes over a reference that a Create or Copy function gave.
    static reference adopt(Ref object) { return reference{object}; }
    // Adds a reference of its own to a borrowed object; null stays null.
    static reference retain(Ref object) {
        if (object) {
            CFRetain(object);
        }
        return reference{object};
    }

    reference(reference const & other)
        : reference{retain(other.m_object)} {}
    reference(reference && other) noexcept
        : m_object{std::exchange(other.m_object, nullptr)} {}
    reference & operator=(reference other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~reference() {
        if (m_object) {
            CFRelease(m_object);
        }
    }

    Ref get() const { return m_object; }
    explicit operator bool() const { return m_object != nullptr; }
    // Gives the reference away.
    [[nodiscard]] Ref release() { return std::exchange(m_object, nullptr); }

private:
    explicit reference(Ref object)
        : m_object{object} {}

    Ref m_object = nullptr;
};

} // namespace mobile_device
