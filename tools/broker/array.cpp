// SPDX-License-Identifier: Apache-2.0
// Arrays and enumerations.

#include "broker/objects.h"

namespace broker {

namespace {

CMPIArray *cloneArray(const CMPIArray *self, CMPIStatus *status)
{
    const ArrayObject *const array = objectOf(self);
    Call call(*array, "clone", status);
    if (call.refused()) {
        return nullptr;
    }
    call.attachToNoRequest();
    return call.array(array->held);
}

CMPICount getSize(const CMPIArray *self, CMPIStatus *status)
{
    const ArrayObject *const array = objectOf(self);
    const Call call(*array, "getSize", status);
    return call.refused() ? 0 : static_cast<CMPICount>(array->held.elements.size());
}

CMPIType getSimpleType(const CMPIArray *self, CMPIStatus *status)
{
    const ArrayObject *const array = objectOf(self);
    const Call call(*array, "getSimpleType", status);
    return call.refused() ? CMPIType{CMPI_null} : array->held.type;
}

CMPIData getElementAt(const CMPIArray *self, CMPICount index, CMPIStatus *status)
{
    ArrayObject *const array = objectOf(self);
    const Call call(*array, "getElementAt", status);
    return call.refused() ? CMPIData{} : array->elementAt(index);
}

CMPIStatus setElementAt(CMPIArray *self, CMPICount index, const CMPIValue *value, CMPIType type)
{
    ArrayObject *const array = objectOf(self);
    Call call(*array, "setElementAt");
    if (call.refused()) {
        return call.status();
    }
    if (index >= array->held.elements.size() || (type != CMPI_null && storedType(type) != array->held.type)) {
        return call.fail(CMPI_RC_ERR_FAILED);
    }
    if (std::optional<Datum> datum = call.read(value, type)) {
        datum->type = array->held.type;
        array->set(index, std::move(*datum));
    }
    return call.status();
}

CMPIEnumeration *cloneEnumeration(const CMPIEnumeration *self, CMPIStatus *status)
{
    const EnumerationObject *const enumeration = objectOf(self);
    Call call(*enumeration, "clone", status);
    if (call.refused() || !call.usable(enumeration->array.get())) {
        return nullptr;
    }
    call.attachToNoRequest();
    return call.enumeration(enumeration->array->held);
}

// The array of an enumeration, or null if the call fails or the provider has released the array.
ArrayObject *arrayOf(Call &call, const EnumerationObject &enumeration)
{
    if (call.refused()) {
        return nullptr;
    }
    if (enumeration.array == nullptr) {
        call.core().note(&Accounting::useAfterRelease, std::string(call.slot()) + " after the release of its array");
        call.fail(CMPI_RC_ERR_FAILED);
    }
    return enumeration.array.get();
}

CMPIData getNext(const CMPIEnumeration *self, CMPIStatus *status)
{
    const EnumerationObject *const enumeration = objectOf(self);
    Call call(*enumeration, "getNext", status);
    ArrayObject *const array = arrayOf(call, *enumeration);
    return array == nullptr ? CMPIData{} : array->elementAt(enumeration->cursor++);
}

CMPIBoolean hasNext(const CMPIEnumeration *self, CMPIStatus *status)
{
    const EnumerationObject *const enumeration = objectOf(self);
    Call call(*enumeration, "hasNext", status);
    const ArrayObject *const array = arrayOf(call, *enumeration);
    return array != nullptr && enumeration->cursor < array->held.elements.size() ? 1 : 0;
}

CMPIArray *toArray(const CMPIEnumeration *self, CMPIStatus *status)
{
    const EnumerationObject *const enumeration = objectOf(self);
    Call call(*enumeration, "toArray", status);
    ArrayObject *const array = arrayOf(call, *enumeration);
    if (array != nullptr && call.withoutHandle()) {
        array->hdl = nullptr;
    }
    return array;
}

} // namespace

ArrayObject::ArrayObject(CMPIArrayFT &table, ArrayData given)
    : held(std::move(given)), parts_(held.elements.size()), seen_(held.elements.size())
{
    kind = "CMPIArray";
    hdl = this;
    ft = &table;
}

std::string ArrayObject::describe() const
{
    return std::to_string(held.elements.size()) + " elements";
}

CMPIData ArrayObject::elementAt(CMPICount index)
{
    CMPIData data{};
    if (index >= held.elements.size()) {
        data.type = held.type;
        data.state = CMPI_badValue;
        return data;
    }
    if (parts_[index] != nullptr) {
        return seen_[index];
    }
    parts_[index] = contentObject(*core, held.elements[index], data);
    if (Object *const part = parts_[index].get()) {
        part->whole = this;
        part->owner = Owner::parent;
        part->source = "getElementAt";
        seen_[index] = data;
    }
    return data;
}

void ArrayObject::set(CMPICount index, Datum datum)
{
    if (parts_[index] != nullptr) {
        core->quarantine(std::move(parts_[index]));
    }
    held.elements[index] = std::move(datum);
}

void ArrayObject::dropContent()
{
    for (std::unique_ptr<Object> &part : parts_) {
        if (part != nullptr) {
            core->quarantine(std::move(part));
        }
    }
    held = {};
    parts_.clear();
}

EnumerationObject::EnumerationObject(CMPIEnumerationFT &table, CMPIArrayFT &arrayTable, ArrayData given, Core &maker)
    : array(std::make_unique<ArrayObject>(arrayTable, std::move(given)))
{
    kind = "CMPIEnumeration";
    hdl = this;
    ft = &table;
    array->core = &maker;
    array->whole = this;
    array->owner = Owner::enumeration;
    array->source = "toArray";
}

std::string EnumerationObject::describe() const
{
    return array == nullptr ? "without its array" : array->describe();
}

void EnumerationObject::dropContent()
{
    if (array != nullptr) {
        core->quarantine(std::move(array));
    }
}

CMPIArrayFT arrayTable(int version)
{
    return {version, releaseSlot<CMPIArray>, cloneArray, getSize, getSimpleType, getElementAt, setElementAt};
}

CMPIEnumerationFT enumerationTable(int version)
{
    return {version, releaseSlot<CMPIEnumeration>, cloneEnumeration, getNext, hasNext, toArray};
}

} // namespace broker
