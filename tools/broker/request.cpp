// SPDX-License-Identifier: Apache-2.0
#include "broker/broker_impl.h"

namespace broker {

namespace {

// Entries of a request's context in the real broker.
NamedData contextEntries(const std::string &principal)
{
    NamedData entries(true);
    const CMPIUint32 flags = 0;
    const CMPIUint32 session = 1;
    entries.set(CMPIInvocationFlags, plainDatum(CMPI_uint32, &flags));
    entries.set(CMPIPrincipal, textDatum(principal));
    entries.set("CMPISessionId", plainDatum(CMPI_uint32, &session));
    entries.set("CMPIRole", textDatum(""));
    return entries;
}

template <class Kind> Kind *handIn(Core &core, Shelf &shelf, std::unique_ptr<Kind> object)
{
    return &core.keep(std::move(object), shelf, Owner::handedIn, "request");
}

} // namespace

RequestState::RequestState(Core &given, const PathData &pathData, bool ownStatus, bool empty)
    : core(given), countMessages(ownStatus)
{
    {
        const std::lock_guard held(core.mutex);
        Tables &tables = core.tables;
        context =
            handIn(core, shelf,
                   std::make_unique<ContextObject>(tables.context, empty ? NamedData(true) : contextEntries("root")));
        result = handIn(core, shelf, std::make_unique<ResultObject>(tables.result));
        path = handIn(core, shelf, std::make_unique<PathObject>(tables.path, pathData));
        in = handIn(core, shelf, std::make_unique<ArgsObject>(tables.args, NamedData{}));
        out = handIn(core, shelf, std::make_unique<ArgsObject>(tables.args, NamedData{}));
        instance =
            handIn(core, shelf, std::make_unique<InstanceObject>(tables.instance, freshInstance(core, pathData)));
    }
    core.enter(shelf);
}

RequestState::~RequestState()
{
    core.end(shelf, countMessages);
}

void RequestState::setProperties(const std::vector<std::string> &names)
{
    propertyNames = names;
    propertyList.clear();
    for (const std::string &name : propertyNames) {
        propertyList.push_back(name.c_str());
    }
    propertyList.push_back(nullptr);
}

Reply RequestState::reply(CMPIStatus status)
{
    const std::lock_guard held(core.mutex);
    Reply reply;
    reply.rc = status.rc;
    if (status.msg != nullptr) {
        StringObject *const message = objectOf(status.msg);
        if (message->released) {
            core.note(&Accounting::useAfterRelease, "a status carries a message that was released");
        } else {
            reply.message = message->text() == nullptr ? "" : message->text();
            message->owner = Owner::value; // released by the broker from now on
        }
    }
    reply.instances = result->instances;
    reply.data = result->data;
    reply.out = toValues(out->held);
    reply.done = result->done;
    return reply;
}

Request::Request(Broker &broker, const std::string &className, const std::vector<NamedValue> &keys,
                 const std::string &nameSpace)
{
    Core &core = broker.impl_->core;
    const PathData path{"", nameSpace.empty() ? core.options.nameSpace : nameSpace, className, toData(keys)};
    // Messages do not count: functions under test may return several statuses, of which the broker sees one.
    impl_ = std::make_unique<Impl>(core, path, false, false);
}

Request::~Request() = default;

const CMPIContext *Request::context() const
{
    return impl_->context;
}

CMPIResult *Request::result() const
{
    return impl_->result;
}

CMPIObjectPath *Request::path() const
{
    return impl_->path;
}

CMPIArgs *Request::in() const
{
    return impl_->in;
}

CMPIArgs *Request::out() const
{
    return impl_->out;
}

void Request::setIn(const std::vector<NamedValue> &args)
{
    const std::lock_guard held(impl_->core.mutex);
    impl_->in->held = toData(args);
}

const char **Request::properties() const
{
    return impl_->properties();
}

void Request::setProperties(const std::vector<std::string> &names)
{
    impl_->setProperties(names);
}

Reply Request::reply(CMPIStatus status) const
{
    return impl_->reply(status);
}

} // namespace broker
