#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <unordered_map>

namespace qnrescue {

// Lists the objects whose addresses a library holds as contexts of its callbacks. The library may
// call at any time: after the object is destroyed, and while the process ends. A callback uses its
// object only inside a visit; one whose context is no longer listed does nothing.
class live_contexts {
public:
    // Returns the list of the process. It is never destroyed, since callbacks may come during exit.
    static live_contexts & instance();

    void add(void const * context);
    // Removes the context. Waits for visits under way; no other begins. Must not be called from
    // within a visit.
    void remove(void const * context);

    class visit {
    public:
        explicit visit(void const * object);
        ~visit();
        visit(visit const &) = delete;
        visit & operator=(visit const &) = delete;

        // Returns whether the object is alive. If so, it stays alive until the visit ends.
        explicit operator bool() const { return alive; }

    private:
        void const * context;
        bool alive;
    };

private:
    struct state {
        std::size_t visits = 0;
        bool closing = false;
    };

    bool enter(void const * context);
    void leave(void const * context);

    std::mutex mutex; // guards contexts
    std::condition_variable left;
    std::unordered_map<void const *, state> contexts; // references to entries stay valid
};

} // namespace qnrescue
