// SPDX-License-Identifier: Apache-2.0
// Cancellation of threads.
#include "sim/interpose.h"
#include "sim/sanitizers.h"

#include <atomic>
#include <pthread.h>

using namespace sim;

namespace {

constinit Real<void()> realTestCancel{"pthread_testcancel"};
constinit Real<int(pthread_t)> realCancel{"pthread_cancel"};

constinit std::atomic<unsigned> requested{0};

} // namespace

unsigned sim::cancelsRequested()
{
    return requested;
}

SIM_EXPORT void simTestCancel() __asm__("pthread_testcancel");
SIM_EXPORT int simCancel(pthread_t thread) __asm__("pthread_cancel");

extern "C" void simTestCancel()
{
    static_cast<void>(SIM_STRIKES(cancelPoint, "pthread_testcancel")); // cannot fail
    MayUnwind here;
    realTestCancel();
    here.returned();
}

extern "C" int simCancel(pthread_t thread)
{
    const bool product = SIM_IS_PRODUCT("pthread_cancel");
    const int result = realCancel(thread);
    requested += product && result == 0 ? 1 : 0;
    return result;
}
