// SPDX-License-Identifier: Apache-2.0
// Distinguishes calls of the product, which are counted and can be made to fail, from calls of other code.
#pragma once

#include "sim/api.h"

namespace sim {

// Whether the build has a sanitizer that replaces the allocator; it is then not interposed.
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

// Whether the code at a return address is the product's. function is the name of the interposed function: under the
// sanitizers their interceptor of that name is the direct caller and is skipped.
bool isProduct(const void *returnAddress, const char *function);

// Counts a call of the product. Returns whether it has to fail.
bool mustFail(Call kind, const void *returnAddress, const char *function);

// Whether calls of operator new count. They do not if all callers count, because tests use operator new and the product
// does not.
bool countsOperatorNew();

// To be called when shared objects were loaded or unloaded.
void objectsChanged();

} // namespace sim
