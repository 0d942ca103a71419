// SPDX-License-Identifier: Apache-2.0
#include "broker/library.h"

#include <algorithm>
#include <cctype>
#include <dlfcn.h>
#include <utility>

namespace broker {

namespace {

std::string lowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Calls one factory. The status is preset, because a factory need not set it.
template <class Object, class Factory>
std::string make(Object *&object, Factory factory, const CMPIBroker *broker, const CMPIContext *context)
{
    CMPIStatus status{CMPI_RC_OK, nullptr};
    object = factory(broker, context, &status);
    if (object != nullptr && status.rc == CMPI_RC_OK) {
        return "";
    }
    object = nullptr;
    return "factory failed with code " + std::to_string(status.rc);
}

} // namespace

std::string Library::load(const std::string &file, const std::string &providerName)
{
    const std::lock_guard held(mutex_);
    if (handle_ != nullptr) {
        return "a provider is already loaded";
    }
    file_ = file;
    providerName_ = providerName;
    std::string error = openNow();
    if (!error.empty()) {
        file_.clear();
    }
    return error;
}

std::string Library::openNow()
{
    if (handle_ != nullptr) {
        return "";
    }
    if (file_.empty()) {
        return "no provider is loaded";
    }
    handle_ = dlopen(file_.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (handle_ == nullptr) {
        const char *const why = dlerror();
        return why == nullptr ? "cannot load " + file_ : why;
    }
    makeInstance_ = reinterpret_cast<InstanceFactory>(dlsym(handle_, (providerName_ + "_Create_InstanceMI").c_str()));
    makeMethod_ = reinterpret_cast<MethodFactory>(dlsym(handle_, (providerName_ + "_Create_MethodMI").c_str()));
    if (makeInstance_ != nullptr && makeMethod_ != nullptr) {
        return "";
    }
    dlclose(std::exchange(handle_, nullptr));
    return "no factories of " + providerName_ + " in " + file_;
}

void Library::close()
{
    const std::lock_guard held(mutex_);
    classes_.clear();
    idleCleanupFailed_ = false;
    if (handle_ != nullptr) {
        dlclose(std::exchange(handle_, nullptr));
    }
}

void Library::forget()
{
    close();
    const std::lock_guard held(mutex_);
    file_.clear();
}

bool Library::open() const
{
    const std::lock_guard held(mutex_);
    return handle_ != nullptr;
}

bool Library::met() const
{
    const std::lock_guard held(mutex_);
    return !classes_.empty();
}

ProviderObjects Library::objectsFor(const std::string &className, const CMPIBroker *broker, const CMPIContext *context,
                                    std::string &error)
{
    const std::lock_guard held(mutex_);
    error = openNow();
    if (!error.empty()) {
        return {};
    }
    const std::string name = lowerCase(className);
    if (const auto known = classes_.find(name); known != classes_.end()) {
        return known->second;
    }
    ProviderObjects made;
    error = make(made.instance, makeInstance_, broker, context);
    if (error.empty()) {
        error = make(made.method, makeMethod_, broker, context);
    }
    if (!error.empty()) {
        return {};
    }
    return classes_[name] = made;
}

ProviderObjects Library::anyObjects(const CMPIBroker *broker, const CMPIContext *context, std::string &error)
{
    {
        const std::lock_guard held(mutex_);
        if (!classes_.empty()) {
            return classes_.begin()->second;
        }
    }
    return objectsFor("", broker, context, error);
}

} // namespace broker
