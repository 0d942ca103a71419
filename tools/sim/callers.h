// SPDX-License-Identifier: Apache-2.0
// Who calls: the product, whose calls are counted and can be made to fail, or other code.
#pragma once

#include "sim/api.h"

namespace sim {

// Whether the allocator is interposed; under the sanitizers it is theirs.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SIM_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SIM_SANITIZED 1
#endif
#endif
#ifndef SIM_SANITIZED
#define SIM_SANITIZED 0
#endif
inline constexpr bool kSanitized = SIM_SANITIZED;

// Whether the code at a return address is the product's. function is the name of the interposed function that was
// called: under the sanitizers their interceptor of it stands between.
bool isProduct(const void *returnAddress, const char *function);

// Whether this call is the one that has been made to fail. Counts it, if the product makes it.
bool strikes(Call kind, const void *returnAddress, const char *function);

// Whether the C++ allocator counts: not when every caller does, for then it is the tests'.
bool newCounts();

// To be called when objects were loaded or unloaded.
void objectsChanged();

} // namespace sim
