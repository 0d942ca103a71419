// SPDX-License-Identifier: Apache-2.0
// State of the classes of broker.h.
#pragma once

#include "broker/library.h"
#include "broker/objects.h"

#include <functional>
#include <shared_mutex>

namespace broker {

struct RequestState {
    // ownStatus: the request has one status, so that all other messages are leaks. empty: the context has no entries,
    // as for a cleanup.
    RequestState(Core &given, const PathData &pathData, bool ownStatus, bool empty);
    ~RequestState();
    RequestState(const RequestState &) = delete;
    RequestState &operator=(const RequestState &) = delete;

    void setProperties(const std::vector<std::string> &names);
    const char **properties() { return propertyList.empty() ? nullptr : propertyList.data(); }
    Reply reply(CMPIStatus status);

    Core &core;
    const bool countMessages;
    Shelf shelf;
    ContextObject *context = nullptr;
    ResultObject *result = nullptr;
    PathObject *path = nullptr;
    ArgsObject *in = nullptr;
    ArgsObject *out = nullptr;
    InstanceObject *instance = nullptr; // for requests that carry one
    std::vector<std::string> propertyNames;
    std::vector<const char *> propertyList;
};

struct Request::Impl : RequestState {
    using RequestState::RequestState;
};

struct Broker::Impl {
    explicit Impl(Options options);

    Core core;
    Library library;
    ContextObject *empty = nullptr; // the context without entries
    std::shared_mutex serving;      // held shared by each request; the shared object is closed only when none runs

    using Serve = std::function<CMPIStatus(const ProviderObjects &, RequestState &)>;
    // Serves one request in its own thread.
    Reply request(const std::string &className, const std::vector<NamedValue> &keys, const Serve &function);
    enum class Side { instance, method };
    Reply cleanup(Side side, bool terminating);

private:
    Reply serve(const PathData &path, const Serve &serve);
    Reply cleanupHere(Side side, bool terminating);
};

} // namespace broker
