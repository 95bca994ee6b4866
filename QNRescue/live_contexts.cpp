#include "QNRescue/live_contexts.hpp"

namespace qnrescue {

live_contexts & live_contexts::instance() {
    static auto & contexts = *new live_contexts;
    return contexts;
}

void live_contexts::add(void const * context) {
    std::lock_guard const lock(mutex);
    contexts.emplace(context, state{});
}

void live_contexts::remove(void const * context) {
    std::unique_lock lock(mutex);
    auto const entry = contexts.find(context);
    if (entry == contexts.end()) {
        return;
    }
    auto & leaving = entry->second;
    leaving.closing = true;
    left.wait(lock, [&] { return leaving.visits == 0; });
    contexts.erase(context);
}

bool live_contexts::enter(void const * context) {
    std::lock_guard const lock(mutex);
    auto const entry = contexts.find(context);
    if (entry == contexts.end() || entry->second.closing) {
        return false;
    }
    ++entry->second.visits;
    return true;
}

void live_contexts::leave(void const * context) {
    {
        std::lock_guard const lock(mutex);
        --contexts.at(context).visits;
    }
    left.notify_all();
}

live_contexts::visit::visit(void const * object)
    : context(object)
    , alive(instance().enter(object)) {}

live_contexts::visit::~visit() {
    if (alive) {
        instance().leave(context);
    }
}

} // namespace qnrescue
