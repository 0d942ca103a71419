// SPDX-License-Identifier: Apache-2.0
#include "broker/broker_impl.h"

#include <thread>

namespace broker {

namespace {

// Runs work in its own thread, as the real broker does with each request. Returns its result.
template <class Work> auto inOwnThread(const Work &work)
{
    decltype(work()) result{};
    std::thread([&] { result = work(); }).join();
    return result;
}

Reply failed(const std::string &message)
{
    Reply reply;
    reply.rc = CMPI_RC_ERR_FAILED;
    reply.message = message;
    return reply;
}

} // namespace

Broker::Impl::Impl(Options options) : core(std::move(options))
{
    const std::lock_guard held(core.mutex);
    auto context = std::make_unique<ContextObject>(core.tables.context, NamedData(true));
    empty = &core.keep(std::move(context), core.prepared, Owner::handedIn, "cleanup");
}

Reply Broker::Impl::serve(const PathData &path, const Serve &serve)
{
    const std::shared_lock held(serving);
    RequestState request(core, path, true, false);
    std::string error;
    const ProviderObjects provider = library.objectsFor(path.className, &core.handle, request.context, error);
    return provider.instance == nullptr ? failed(error) : request.reply(serve(provider, request));
}

Reply Broker::Impl::request(const std::string &className, const std::vector<NamedValue> &keys, const Serve &function)
{
    const PathData path{"", core.options.nameSpace, className, toData(keys)};
    return inOwnThread([&] { return serve(path, function); });
}

Reply Broker::Impl::cleanupHere(Side side, bool terminating)
{
    RequestState request(core, PathData{}, true, true);
    std::string error;
    const ProviderObjects provider = library.anyObjects(&core.handle, request.context, error);
    if (provider.instance == nullptr) {
        return failed(error);
    }
    const CMPIBoolean flag = terminating ? 1 : 0;
    return request.reply(side == Side::instance ? provider.instance->ft->cleanup(provider.instance, empty, flag)
                                                : provider.method->ft->cleanup(provider.method, empty, flag));
}

Reply Broker::Impl::cleanup(Side side, bool terminating)
{
    return inOwnThread([&] { return cleanupHere(side, terminating); });
}

Broker::Broker(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Broker::~Broker()
{
    unload();
}

const CMPIBroker *Broker::handle() const
{
    return &impl_->core.handle;
}

const CMPIContext *Broker::emptyContext() const
{
    return impl_->empty;
}

void Broker::addClass(const std::string &className, const std::vector<Property> &properties)
{
    impl_->core.addClass(std::make_shared<const ClassData>(ClassData{className, properties}));
}

void Broker::addInstance(const Instance &instance)
{
    const std::lock_guard held(impl_->core.mutex);
    PathData path{"", instance.nameSpace, instance.className, toData(instance.keys)};
    if (path.nameSpace.empty()) {
        path.nameSpace = impl_->core.options.nameSpace;
    }
    InstanceData data = freshInstance(impl_->core, path);
    for (const NamedValue &property : instance.properties) {
        data.presets.remove(property.name);
        data.properties.set(property.name, toDatum(property.value));
    }
    impl_->core.instances.push_back(std::move(data));
}

void Broker::setServiceMode(std::optional<bool> serviceMode)
{
    const std::lock_guard held(impl_->core.mutex);
    impl_->core.serviceMode = serviceMode;
}

std::string Broker::load(const std::string &sharedObject, const std::string &providerName)
{
    return impl_->library.load(sharedObject, providerName);
}

void Broker::unload()
{
    const std::unique_lock held(impl_->serving);
    impl_->library.forget();
}

bool Broker::loaded() const
{
    return impl_->library.open();
}

Reply Broker::getInstance(const std::string &className, const std::vector<NamedValue> &keys,
                          const std::optional<std::vector<std::string>> &properties)
{
    Reply reply = impl_->request(className, keys, [&](const ProviderObjects &provider, RequestState &request) {
        if (properties) {
            request.setProperties(*properties);
        }
        return provider.instance->ft->getInstance(provider.instance, request.context, request.result, request.path,
                                                  request.properties());
    });
    if (reply.ok() && reply.instances.empty()) {
        reply.rc = CMPI_RC_ERR_NOT_FOUND;
    }
    return reply;
}

Reply Broker::enumInstances(const std::string &className, const std::optional<std::vector<std::string>> &properties)
{
    return impl_->request(className, {}, [&](const ProviderObjects &provider, RequestState &request) {
        if (properties) {
            request.setProperties(*properties);
        }
        return provider.instance->ft->enumerateInstances(provider.instance, request.context, request.result,
                                                         request.path, request.properties());
    });
}

Reply Broker::enumInstanceNames(const std::string &className)
{
    return impl_->request(className, {}, [](const ProviderObjects &provider, RequestState &request) {
        return provider.instance->ft->enumerateInstanceNames(provider.instance, request.context, request.result,
                                                             request.path);
    });
}

Reply Broker::createInstance(const std::string &className)
{
    return impl_->request(className, {}, [](const ProviderObjects &provider, RequestState &request) {
        return provider.instance->ft->createInstance(provider.instance, request.context, request.result, request.path,
                                                     request.instance);
    });
}

Reply Broker::modifyInstance(const std::string &className)
{
    return impl_->request(className, {}, [](const ProviderObjects &provider, RequestState &request) {
        return provider.instance->ft->modifyInstance(provider.instance, request.context, request.result, request.path,
                                                     request.instance, nullptr);
    });
}

Reply Broker::deleteInstance(const std::string &className, const std::vector<NamedValue> &keys)
{
    return impl_->request(className, keys, [](const ProviderObjects &provider, RequestState &request) {
        return provider.instance->ft->deleteInstance(provider.instance, request.context, request.result, request.path);
    });
}

Reply Broker::execQuery(const std::string &className, const std::string &query)
{
    return impl_->request(className, {}, [&](const ProviderObjects &provider, RequestState &request) {
        return provider.instance->ft->execQuery(provider.instance, request.context, request.result, request.path,
                                                query.c_str(), "WQL");
    });
}

Reply Broker::invokeMethod(const std::string &className, const std::string &method, const std::vector<NamedValue> &args)
{
    return impl_->request(className, {}, [&](const ProviderObjects &provider, RequestState &request) {
        {
            const std::lock_guard held(request.core.mutex);
            request.in->held = toData(args);
        }
        return provider.method->ft->invokeMethod(provider.method, request.context, request.result, request.path,
                                                 method.c_str(), request.in, request.out);
    });
}

Reply Broker::cleanupInstance(bool terminating)
{
    return impl_->cleanup(Impl::Side::instance, terminating);
}

Reply Broker::cleanupMethod(bool terminating)
{
    return impl_->cleanup(Impl::Side::method, terminating);
}

bool Broker::idle()
{
    const std::unique_lock held(impl_->serving, std::try_to_lock);
    if (!held || !loaded() || impl_->library.idleCleanupFailed()) {
        return false;
    }
    for (const Impl::Side side : {Impl::Side::instance, Impl::Side::method}) {
        const int rc = impl_->library.met() ? impl_->cleanup(side, false).rc : CMPI_RC_OK;
        if (rc != CMPI_RC_OK) {
            if (rc != CMPI_RC_DO_NOT_UNLOAD) {
                impl_->library.stopIdleCleanups();
            }
            return false;
        }
    }
    impl_->library.close();
    return true;
}

void Broker::stop()
{
    if (!impl_->library.met()) {
        unload();
        return;
    }
    const auto bothSides = [this] {
        impl_->cleanup(Impl::Side::instance, true);
        impl_->cleanup(Impl::Side::method, true);
    };
    // The real broker does not wait for a slow cleanup but calls it again.
    std::thread again(bothSides);
    bothSides();
    again.join();
    unload();
}

Accounting Broker::accounting() const
{
    return impl_->core.accounting();
}

void Broker::forgetAccounting()
{
    impl_->core.forgetAccounting();
}

void Broker::failCall(const std::string &slot, unsigned nth, int rc)
{
    impl_->core.failCall(slot, nth, rc);
}

bool Broker::failureStruck() const
{
    return impl_->core.failureStruck();
}

unsigned Broker::calls(const std::string &slot) const
{
    return impl_->core.calls(slot);
}

void Broker::forgetCalls()
{
    impl_->core.forgetCalls();
}

} // namespace broker
