// SPDX-License-Identifier: Apache-2.0
#include "broker/objects.h"

namespace broker {

namespace {

// The content of an object passed as a value; null if it was released.
template <class Kind, class Pointer> const Kind *contentOf(Call &call, Pointer *pointer)
{
    Kind *const object = objectOf(pointer);
    return call.usable(object) ? object : nullptr;
}

template <class Data, class Kind> std::optional<Datum> copyOf(CMPIType type, const Kind *object)
{
    if (object == nullptr) {
        return std::nullopt;
    }
    return Datum{type, false, std::make_shared<const Data>(object->held)};
}

} // namespace

Call::Call(Core &core, const char *slot, CMPIStatus *status) : core_(core), lock_(core.mutex), slot_(slot), out_(status)
{
    const std::optional<int> failure = core.count(slot);
    withoutHandle_ = failure == Broker::kNullHandle;
    refused_ = failure.has_value() && !withoutHandle_;
    rc_ = refused_ ? *failure : CMPI_RC_OK;
    setStatus(out_, rc_);
}

Call::Call(const Object &object, const char *slot, CMPIStatus *status) : Call(*object.core, slot, status)
{
    if (!refused_ && !usable(&object)) {
        refused_ = true;
        fail(CMPI_RC_ERR_INVALID_HANDLE);
    }
}

Call::Call(const CMPIBroker *broker, const CMPIContext *context, const char *slot, CMPIStatus *status)
    : Call(Core::of(broker), slot, status)
{
    const ContextObject *const given = context == nullptr ? nullptr : objectOf(context);
    const bool fromCleanup = given != nullptr && !given->released && given->held.all().empty();
    if (fromCleanup) {
        core_.note(&Accounting::callsFromCleanup, std::string("called with an empty context: ") + slot);
    }
    if (!refused_ && (fromCleanup || !usable(given))) {
        refused_ = true;
        fail(CMPI_RC_ERR_FAILED);
    }
}

CMPIStatus Call::fail(int rc)
{
    rc_ = rc;
    setStatus(out_, rc);
    return status();
}

bool Call::usable(const Object *argument)
{
    if (argument != nullptr && argument->released) {
        core_.note(&Accounting::useAfterRelease,
                   std::string(slot_) + " after the release of " + argument->kind + " of " + argument->source);
    }
    return argument != nullptr && !argument->released;
}

std::optional<Datum> Call::read(const CMPIValue *value, CMPIType type)
{
    std::optional<Datum> datum;
    const bool isPointer = plainWidth(type) == 0 && type != CMPI_chars; // like all encapsulated values
    if (value == nullptr || type == CMPI_null || (isPointer && value->string == nullptr)) {
        datum = nullDatum(type);
    } else if (plainWidth(type) != 0) {
        datum = plainDatum(type, value);
    } else if (type == CMPI_chars) {
        datum = textDatum(reinterpret_cast<const char *>(value)); // deliberate: the argument is the text itself
    } else if (type == CMPI_string) {
        const StringObject *const string = contentOf<StringObject>(*this, value->string);
        const char *const text = string == nullptr ? nullptr : string->text();
        datum = text == nullptr ? nullDatum(type) : textDatum(text);
    } else if (type == CMPI_ref) {
        datum = copyOf<PathData>(type, contentOf<PathObject>(*this, value->ref));
    } else if (type == CMPI_instance) {
        datum = copyOf<InstanceData>(type, contentOf<InstanceObject>(*this, value->inst));
    } else if (type == CMPI_dateTime) {
        datum = copyOf<TimeData>(type, contentOf<TimeObject>(*this, value->dateTime));
    } else if ((type & CMPI_ARRAY) != 0) {
        datum = copyOf<ArrayData>(storedType(type), contentOf<ArrayObject>(*this, value->array));
    }
    if (!datum) {
        fail(CMPI_RC_ERR_INVALID_DATA_TYPE);
    }
    return datum;
}

template <class Kind> Kind *Call::give(std::unique_ptr<Kind> object, Owner owner)
{
    Shelf &shelf = shelf_ != nullptr ? *shelf_ : core_.currentShelf();
    Kind &kept = core_.keep(std::move(object), shelf, owner, slot_);
    if (withoutHandle_) {
        kept.hdl = nullptr;
    }
    return &kept;
}

CMPIString *Call::string(const std::optional<std::string> &text, Owner owner)
{
    return give(std::make_unique<StringObject>(core_.tables.string, text), owner);
}

CMPIObjectPath *Call::path(PathData data)
{
    return give(std::make_unique<PathObject>(core_.tables.path, std::move(data)), Owner::provider);
}

CMPIInstance *Call::instance(InstanceData data)
{
    return give(std::make_unique<InstanceObject>(core_.tables.instance, std::move(data)), Owner::provider);
}

CMPIArray *Call::array(ArrayData data)
{
    return give(std::make_unique<ArrayObject>(core_.tables.array, std::move(data)), Owner::provider);
}

CMPIArgs *Call::args(NamedData data)
{
    return give(std::make_unique<ArgsObject>(core_.tables.args, std::move(data)), Owner::provider);
}

CMPIDateTime *Call::time(TimeData data)
{
    return give(std::make_unique<TimeObject>(core_.tables.time, data), Owner::provider);
}

CMPIEnumeration *Call::enumeration(ArrayData data)
{
    return give(
        std::make_unique<EnumerationObject>(core_.tables.enumeration, core_.tables.array, std::move(data), core_),
        Owner::provider);
}

CMPIData Call::data(const Datum &datum)
{
    CMPIData result{};
    if (std::unique_ptr<Object> content = contentObject(core_, datum, result)) {
        core_.keep(std::move(content), shelf_ != nullptr ? *shelf_ : core_.currentShelf(), Owner::value, slot_);
    }
    return result;
}

CMPIData Call::missing(int rc)
{
    fail(rc);
    CMPIData nothing{};
    nothing.state = CMPI_notFound;
    return nothing;
}

CMPIData Call::entryAt(const std::vector<NamedDatum> &entries, CMPICount index, CMPIString **name)
{
    if (index >= entries.size()) {
        return missing(CMPI_RC_ERR_NO_SUCH_PROPERTY);
    }
    if (name != nullptr) {
        *name = string(entries[index].name, Owner::value);
    }
    return data(entries[index].datum);
}

} // namespace broker
