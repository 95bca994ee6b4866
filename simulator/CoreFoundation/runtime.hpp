// What all objects have in common: a type, a retain count, creation and destruction.
//
// A new type is a struct that derives from Object and has a `static Type const class_type`. Its
// functions live in the file of its name.
#pragma once

#include "platform/CoreFoundation.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace cf {

struct object;
class doomed_objects;

// What CoreFoundation knows about a type. A null `equal` compares identities, a null `hash` hashes
// the address.
struct object_type {
    CFTypeID id;
    char const * name;
    // Releases what the object holds through `doomed`, then gives its memory back.
    void (*destroy)(object & object, doomed_objects & doomed);
    bool (*equal)(object const & left, object const & right); // both are of this type
    CFHashCode (*hash)(object const & object);
    void (*describe)(object const & object, std::u16string & text); // appends CFCopyDescription's
};

// The retain count of an object that retain and release leave alone.
inline constexpr std::int64_t immortal = 0x0fffffffffffffff;

// The base of every object. It is at the object's beginning and has no virtual functions, so that
// constants need no construction at run time.
struct object {
    object_type const * type;
    mutable std::atomic<std::int64_t> references;

    constexpr explicit object(object_type const & its_type, std::int64_t first_references = 1)
        : type{&its_type}
        , references{first_references} {}
};

// Ends the process as the platform library does when it is misused: one line on standard error,
// a failing exit, no handlers.
[[noreturn]] void trap(std::string_view function, std::string_view why) noexcept;

// Writes the text and a plain line feed to standard error, on every platform.
void write_error_line(std::string_view text);

// Returns what the body returns. An exception, which must not reach a caller in C, traps in the
// name of the calling function.
template <typename Body>
auto guarded(Body && body, char const * function = __builtin_FUNCTION()) {
    try {
        return body();
    } catch (std::exception const & exception) {
        trap(function, std::string{"failed with "} + exception.what());
    }
}

// Allocates memory for an object, which counts as live until deallocate; never returns null. The
// trace says how many objects are live when the process ends.
void * allocate(std::size_t size);
void deallocate(void * memory) noexcept;

// Allocates memory for an object that lives for ever and is never counted.
void * allocate_uncounted(std::size_t size);

// Creates an object with one reference and `extra` bytes behind it in the same allocation.
template <typename T, typename... Arguments>
T * create_with_extra(std::size_t extra, Arguments &&... arguments) {
    return ::new (allocate(sizeof(T) + extra)) T{std::forward<Arguments>(arguments)...};
}

template <typename T, typename... Arguments>
T * create(Arguments &&... arguments) {
    return create_with_extra<T>(0, std::forward<Arguments>(arguments)...);
}

// An object_type::destroy for an object that holds no other objects.
template <typename T>
void destroy(object & object, doomed_objects &) {
    auto & whole = static_cast<T &>(object);
    whole.~T();
    deallocate(&whole);
}

inline void retain(object const & object) noexcept {
    if (object.references.load(std::memory_order_relaxed) != immortal) {
        object.references.fetch_add(1, std::memory_order_relaxed);
    }
}

// Gives up one reference; returns whether it was the last one. Whoever holds the only reference
// needs no atomic subtraction.
inline bool drop_reference(object const & object) noexcept {
    auto const references = object.references.load(std::memory_order_acquire);
    if (references == immortal) {
        return false;
    }
    return references == 1 || object.references.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

// Objects whose last reference went while their container was destroyed. They wait here and not on
// the stack, which makes containers of any depth safe to release.
class doomed_objects {
public:
    void release(object const & object) noexcept;
    object * next() noexcept; // null when no object is left

private:
    object * first = nullptr;
};

// CFRelease, CFEqual and CFHash for objects known not to be null.
void release(object const & object);
bool equal(object const & left, object const & right);
CFHashCode hash(object const & object);

inline object const & object_of(CFTypeRef reference) {
    return *static_cast<object const *>(reference);
}

template <typename T>
bool is(CFTypeRef reference) {
    return object_of(reference).type == &T::class_type;
}

[[noreturn]] void trap_wrong_argument(CFTypeRef reference, object_type const & wanted,
                                      char const * function);

// Returns the object behind an argument; traps in the name of the calling function if it is null or
// of another type.
template <typename T>
T const & checked(CFTypeRef reference, char const * function = __builtin_FUNCTION()) {
    if (reference == nullptr || !is<T>(reference)) [[unlikely]] {
        trap_wrong_argument(reference, T::class_type, function);
    }
    return static_cast<T const &>(object_of(reference));
}

template <typename T>
T & checked(T * reference, char const * function = __builtin_FUNCTION()) {
    return const_cast<T &>(checked<T>(static_cast<CFTypeRef>(reference), function));
}

} // namespace cf
