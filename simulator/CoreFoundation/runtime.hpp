// What every object has in common: its type, its retain count, its creation and its end.
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

struct Object;
class DoomedObjects;

// What CoreFoundation knows about a type. A null `equal` compares identities, a null `hash` hashes
// the address.
struct Type {
    CFTypeID id;
    char const * name;
    // Releases what the object holds through `doomed`, then gives its memory back.
    void (*destroy)(Object & object, DoomedObjects & doomed);
    bool (*equal)(Object const & left, Object const & right); // both are of this type
    CFHashCode (*hash)(Object const & object);
    void (*describe)(Object const & object, std::u16string & text); // appends CFCopyDescription's
};

// The retain count of an object that retain and release leave alone.
inline constexpr std::int64_t immortal = 0x0fffffffffffffff;

// The base of every object; it stands at the object's beginning and has no virtual functions, so
// that constants need no construction at run time.
struct Object {
    Type const * type;
    mutable std::atomic<std::int64_t> references;

    constexpr explicit Object(Type const & its_type, std::int64_t first_references = 1)
        : type{&its_type}
        , references{first_references} {}
};

// Ends the process as the platform library does when it is misused: one line on standard error,
// a failing exit, no handlers.
[[noreturn]] void trap(std::string_view function, std::string_view why) noexcept;

// Writes the text and a plain line feed to standard error, on every platform.
void write_error_line(std::string_view text);

// What the body answers. An exception, which must not reach a caller in C, traps in the name of the
// calling function.
template <class Body>
auto guarded(Body && body, char const * function = __builtin_FUNCTION()) {
    try {
        return body();
    } catch (std::exception const & exception) {
        trap(function, std::string{"failed with "} + exception.what());
    }
}

// Memory for an object that counts as live until deallocate. Never null. What still lives when the
// process ends is told in the trace.
void * allocate(std::size_t size);
void deallocate(void * memory) noexcept;

// The same for an object that lives for ever and is never counted.
void * allocate_uncounted(std::size_t size);

// A new object with one reference and `room` bytes behind it in the same allocation.
template <class T, class... Arguments>
T * create_with_room(std::size_t room, Arguments &&... arguments) {
    return ::new (allocate(sizeof(T) + room)) T{std::forward<Arguments>(arguments)...};
}

template <class T, class... Arguments>
T * create(Arguments &&... arguments) {
    return create_with_room<T>(0, std::forward<Arguments>(arguments)...);
}

// A Type::destroy for an object that holds no other objects.
template <class T>
void destroy(Object & object, DoomedObjects &) {
    auto & whole = static_cast<T &>(object);
    whole.~T();
    deallocate(&whole);
}

inline void retain(Object const & object) noexcept {
    if (object.references.load(std::memory_order_relaxed) != immortal) {
        object.references.fetch_add(1, std::memory_order_relaxed);
    }
}

// Gives up one reference; true if it was the last one. Whoever holds the only reference needs no
// atomic subtraction.
inline bool drop_reference(Object const & object) noexcept {
    auto const references = object.references.load(std::memory_order_acquire);
    if (references == immortal) {
        return false;
    }
    return references == 1 || object.references.fetch_sub(1, std::memory_order_acq_rel) == 1;
}

// Objects whose last reference went while their container was destroyed. They wait here and not on
// the stack, which makes containers of any depth safe to release.
class DoomedObjects {
public:
    void release(Object const & object) noexcept;
    Object * next() noexcept; // null when none is left

private:
    Object * first_ = nullptr;
};

// CFRelease, CFEqual and CFHash for objects known not to be null.
void release(Object const & object);
bool equal(Object const & left, Object const & right);
CFHashCode hash(Object const & object);

inline Object const & object_of(CFTypeRef reference) {
    return *static_cast<Object const *>(reference);
}

template <class T>
bool is(CFTypeRef reference) {
    return object_of(reference).type == &T::class_type;
}

[[noreturn]] void trap_wrong_argument(CFTypeRef reference, Type const & wanted,
                                      char const * function);

// The object behind an argument; traps in the name of the calling function if it is null or of
// another type.
template <class T>
T const & checked(CFTypeRef reference, char const * function = __builtin_FUNCTION()) {
    if (reference == nullptr || !is<T>(reference)) [[unlikely]] {
        trap_wrong_argument(reference, T::class_type, function);
    }
    return static_cast<T const &>(object_of(reference));
}

template <class T>
T & checked(T * reference, char const * function = __builtin_FUNCTION()) {
    return const_cast<T &>(checked<T>(static_cast<CFTypeRef>(reference), function));
}

} // namespace cf
