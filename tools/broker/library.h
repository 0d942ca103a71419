// SPDX-License-Identifier: Apache-2.0
// A provider's shared object: loading, factories, cleanup.
#pragma once

#include <cmpift.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace broker {

// Results of the factories for one class.
struct ProviderObjects {
    CMPIInstanceMI *instance = nullptr;
    CMPIMethodMI *method = nullptr;
};

class Library {
public:
    // Opens a shared object and finds its factories. Returns "", or the reason of a failure.
    std::string load(const std::string &file, const std::string &providerName);
    void close();  // after the cleanup of an idle provider: the next request opens it again
    void forget(); // the provider is no longer loaded
    bool open() const;
    bool met() const; // whether a class has had a request, so that a cleanup is needed

    // The provider's objects for a class. The factories are called in this thread for the first request of a class.
    // Returns no objects and sets error if the provider cannot be loaded or a factory failed.
    ProviderObjects objectsFor(const std::string &className, const CMPIBroker *broker, const CMPIContext *context,
                               std::string &error);
    // The objects of any class, for a cleanup, which is called once for all classes.
    ProviderObjects anyObjects(const CMPIBroker *broker, const CMPIContext *context, std::string &error);

    // Whether the cleanup of the idle provider failed, so that it is not repeated.
    bool idleCleanupFailed() const { return idleCleanupFailed_; }
    void stopIdleCleanups() { idleCleanupFailed_ = true; }

private:
    using InstanceFactory = CMPIInstanceMI *(*)(const CMPIBroker *, const CMPIContext *, CMPIStatus *);
    using MethodFactory = CMPIMethodMI *(*)(const CMPIBroker *, const CMPIContext *, CMPIStatus *);

    std::string openNow(); // with the lock held

    mutable std::mutex mutex_; // factories run one after another, as in the real broker
    std::string file_;
    std::string providerName_;
    void *handle_ = nullptr;
    InstanceFactory makeInstance_ = nullptr;
    MethodFactory makeMethod_ = nullptr;
    std::map<std::string, ProviderObjects> classes_; // by name in lower case
    std::atomic<bool> idleCleanupFailed_ = false;
};

} // namespace broker
