#include "tests/unit/helpers/small_stack.hpp"

#include <cstddef>
#include <stdexcept>

#ifdef _WIN32
#include <windows.h>
#else
#include <pthread.h>
#endif

namespace tests {

namespace {

constexpr std::size_t stack_size = std::size_t{1} << 20; // bytes

void perform(void * action) {
    (*static_cast<std::function<void()> *>(action))();
}

} // namespace

#ifdef _WIN32

void run_on_small_stack(std::function<void()> action) {
    auto const start = [](void * context) -> DWORD {
        perform(context);
        return 0;
    };
    HANDLE const thread = CreateThread(nullptr, stack_size, start, &action,
                                       STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    if (thread == nullptr) {
        throw std::runtime_error("CreateThread");
    }
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}

#else

void run_on_small_stack(std::function<void()> action) {
    auto const start = [](void * context) -> void * {
        perform(context);
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stack_size);
    pthread_t thread;
    auto const error = pthread_create(&thread, &attributes, start, &action);
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        throw std::runtime_error("pthread_create");
    }
    pthread_join(thread, nullptr);
}

#endif

} // namespace tests
