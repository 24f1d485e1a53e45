// Keeps exceptions inside the library: every export runs its body through
// one of these and answers with the call's neutral result instead, after
// recording the failure as the thread's last error.
#pragma once

#include <new>
#include <utility>

#include "errors/last_error.h"

namespace qz::api {

inline void record_exception() noexcept {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        qz::errors::set(qz::errors::memory, "out of memory");
    } catch (...) {
        qz::errors::set(qz::errors::internal, "internal error");
    }
}

template <class R, class F>
R guarded(R fallback, F&& body) noexcept {
    try {
        return std::forward<F>(body)();
    } catch (...) {
        record_exception();
        return fallback;
    }
}

template <class F>
void guarded(F&& body) noexcept {
    try {
        std::forward<F>(body)();
    } catch (...) {
        record_exception();
    }
}

}  // namespace qz::api
