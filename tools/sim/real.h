// SPDX-License-Identifier: Apache-2.0
// The C library's function of an interposed name: the next definition in the search order.
#pragma once

#include <atomic>
#include <dlfcn.h>

namespace sim {

template <class F> class Real {
public:
    constexpr explicit Real(const char *name) : name_(name) {}

    // Looked up at the first use, because an interposed function can be called before any constructor has run. Null if
    // the C library has no such function.
    F *find()
    {
        F *function = function_.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = reinterpret_cast<F *>(dlsym(RTLD_NEXT, name_));
            function_.store(function, std::memory_order_relaxed);
        }
        return function;
    }

    template <class... Args> auto operator()(Args... args) { return find()(args...); }

private:
    const char *name_;
    std::atomic<F *> function_{nullptr};
};

} // namespace sim
