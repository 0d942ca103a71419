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

// What the factories gave for one class.
struct ProviderObjects {
    CMPIInstanceMI *instance = nullptr;
    CMPIMethodMI *method = nullptr;
};

class Library {
public:
    // Opens a shared object and finds its factories. Empty on success, else why not.
    std::string load(const std::string &file, const std::string &providerName);
    void close();  // as after an idle provider's cleanup: the next request opens it again
    void forget(); // for good
    bool open() const;
    bool met() const; // whether a class has had its first request, so that there is something to clean up

    // The provider's objects for a class. The factories are called in this thread when it is the class's first time.
    // Without objects when the provider cannot be loaded or refused; why is in error.
    ProviderObjects objectsFor(const std::string &className, const CMPIBroker *broker, const CMPIContext *context,
                               std::string &error);
    // Those of any class, for the cleanup, which is called once for all.
    ProviderObjects anyObjects(const CMPIBroker *broker, const CMPIContext *context, std::string &error);

    // Whether a cleanup answered so that an idle provider is not asked again.
    bool staysForGood() const { return staysForGood_; }
    void stayForGood() { staysForGood_ = true; }

private:
    using InstanceFactory = CMPIInstanceMI *(*)(const CMPIBroker *, const CMPIContext *, CMPIStatus *);
    using MethodFactory = CMPIMethodMI *(*)(const CMPIBroker *, const CMPIContext *, CMPIStatus *);

    std::string openNow(); // with the lock held

    mutable std::mutex mutex_; // factories run one after another, as really
    std::string file_;
    std::string providerName_;
    void *handle_ = nullptr;
    InstanceFactory makeInstance_ = nullptr;
    MethodFactory makeMethod_ = nullptr;
    std::map<std::string, ProviderObjects> classes_; // by name in lower case
    std::atomic<bool> staysForGood_ = false;
};

} // namespace broker
