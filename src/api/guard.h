// Keeps exceptions inside the library: every export runs its body through
// one of these and answers with the call's neutral result instead.
#pragma once

#include <utility>

namespace qz::api {

template <class R, class F>
R guarded(R fallback, F&& body) noexcept {
    try {
        return std::forward<F>(body)();
    } catch (...) {
        return fallback;
    }
}

template <class F>
void guarded(F&& body) noexcept {
    try {
        std::forward<F>(body)();
    } catch (...) {
    }
}

}  // namespace qz::api
