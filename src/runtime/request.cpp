// SPDX-License-Identifier: Apache-2.0
#include "runtime/request.h"

#include "runtime/cmpi_data.h"
#include "runtime/holders.h"
#include "runtime/trace.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace tavstrg;

namespace {

// atoi for any text: its result for numbers beyond 32 bits is their low 32 bits, where atoi's is undefined.
int32_t decimal(const char *text)
{
    return static_cast<int32_t>(std::strtoll(text, nullptr, 10));
}

// Whether a value that was sent can be read. The value word is tested whole, so a numeric zero counts as missing; a
// NULL text comes with a string object whose text is null.
bool isReadable(const CMPIData &data)
{
    if ((data.state & CMPI_nullValue) != 0 || data.value.uint64 == 0) {
        return false;
    }
    return data.type != CMPI_string || data.value.string->hdl != nullptr;
}

int32_t number(const CMPIData &data)
{
    return data.type == CMPI_string ? decimal(textOf(data.value.string)) : int32_t{data.value.uint16};
}

// The two names of a path differ in the call and in the texts only.
struct NameQuery {
    CMPIString *(*CMPIObjectPathFT::*slot)(const CMPIObjectPath *, CMPIStatus *);
    const char *call;
    const char *label;
};
constexpr NameQuery kNameSpaceQuery = {&CMPIObjectPathFT::getNameSpace, "CMGetNameSpace", "namsp"};
constexpr NameQuery kClassNameQuery = {&CMPIObjectPathFT::getClassName, "CMGetClassName", "className"};

char *copyName(const NameQuery &query, const CMPIObjectPath *cop)
{
    TRACE(kDetail, "_IN_ cop=[%p]", static_cast<const void *>(cop));
    if (cop == nullptr) {
        return TRACED(nullptr, kFailure, "_OUT_ Param(cop) Failure!!");
    }
    CMPIStatus status{};
    CmpiHolder<CMPIString> name((cop->ft->*query.slot)(cop, &status));
    if (status.rc != CMPI_RC_OK || !name) {
        return TRACED(nullptr, kFailure, "_OUT_ %s() Failure!!", query.call);
    }
    char *const copy = ::strdup(textOf(name.get()));
    const int error = errno;
    name.release();
    if (copy == nullptr) {
        return TRACED(nullptr, kFailure, "_OUT_ CMGetCharsPtr() Failure!! errno=[%d]", error);
    }
    return TRACED(copy, kDetail, "_OUT_ %s=[%p][%s]", query.label, static_cast<void *>(copy), copy);
}

} // namespace

int getKeyIndex(const CMPIObjectPath *cop)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_ cop=[%p]", static_cast<const void *>(cop));
    if (cop == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ Param(cop) Failure!!");
    }
    CMPIStatus status{};
    const CMPIData key = cop->ft->getKey(cop, "Index", &status);
    const CmpiHolder<CMPIString> text(status.rc == CMPI_RC_OK ? ownedText(key) : nullptr);
    if (status.rc != CMPI_RC_OK || !isReadable(key)) {
        return TRACED(-1, kFailure, "_OUT_ CMGetKey() Failure!!");
    }
    const int index = static_cast<uint16_t>(number(key)); // deliberate: the low 16 bits of whatever was sent
    return TRACED(index, kDetail, "_OUT_ ret=[%d]", index);
}

bool tavstrg::getKeyText(const CMPIObjectPath *cop, const char *name, std::span<char> out)
{
    CMPIStatus status{};
    const CMPIData key = cop->ft->getKey(cop, name, &status);
    const CmpiHolder<CMPIString> text(status.rc == CMPI_RC_OK ? ownedText(key) : nullptr);
    if (status.rc != CMPI_RC_OK || key.type != CMPI_string || !isReadable(key)) {
        return TRACED(false, kFailure, "CMGetKey(%s) Failure!!", name);
    }
    std::snprintf(out.data(), out.size(), "%s", textOf(text.get()));
    TRACE(kDetail, "CMGetKey() %s=[%s]", name, out.data());
    return true;
}

bool tavstrg::isPathOf(const CMPIObjectPath *cop, const char *className)
{
    if (cop == nullptr) {
        return false;
    }
    CMPIStatus status{};
    const CmpiHolder<CMPIString> name(cop->ft->getClassName(cop, &status));
    return status.rc == CMPI_RC_OK && name && std::strcmp(textOf(name.get()), className) == 0;
}

int32_t getArgToInt(const CMPIArgs *in, const char *name)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (in == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ Param(cin) Failure!!");
    }
    CMPIStatus status{};
    const CMPIData argument = in->ft->getArg(in, name, &status);
    const CmpiHolder<CMPIString> text(status.rc == CMPI_RC_OK ? ownedText(argument) : nullptr);
    if (status.rc != CMPI_RC_OK || !isReadable(argument)) {
        return TRACED(-1, kFailure, "_OUT_ CMGetArg() Failure!!");
    }
    const int32_t value = number(argument);
    return TRACED(value, kDetail, "_OUT_ ret=[%d]", value);
}

char *getNameSpace(const CMPIObjectPath *cop)
{
    const TraceScope scope;
    return copyName(kNameSpaceQuery, cop);
}

char *getClassName(const CMPIObjectPath *cop)
{
    const TraceScope scope;
    return copyName(kClassNameQuery, cop);
}

int getEnumArray(const CInfo *cInfo, const char *nameSpace, const char *className, CMPIArray **array)
{
    const TraceScope scope;
    TRACE(kDetail, "_IN_");
    if (cInfo == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ Param(cInfo) Failure!!");
    }
    if (nameSpace == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ Param(namespace) Failure!!");
    }
    if (className == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ Param(classname) Failure!!");
    }
    if (array == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ Param(cPArray) Failure!!");
    }
    TRACE(kDetail, "namespace=[%s] class=[%s]", nameSpace, className);
    const CMPIBroker *const broker = cInfo->broker;
    CMPIStatus status{};
    const CmpiHolder<CMPIObjectPath> path(broker->eft->newObjectPath(broker, nameSpace, className, &status));
    if (status.rc != CMPI_RC_OK || !path) {
        return TRACED(-1, kFailure, "_OUT_ CMNewObjectPath() Failure!! status=[%d]", status.rc);
    }
    // The slot itself: the convenience macro for it does not compile with every set of broker headers.
    const CmpiHolder<CMPIEnumeration> found(
        broker->bft->enumerateInstances(broker, cInfo->context, path.get(), nullptr, &status));
    if (status.rc != CMPI_RC_OK || !found) {
        return TRACED(-1, kFailure, "_OUT_ CBEnumInstances() Failure!! status=[%d]", status.rc);
    }
    // Not an object of its own: it is the enumeration's array, which goes with the enumeration.
    const CMPIArray *const all = found.get()->ft->toArray(found.get(), &status);
    if (status.rc != CMPI_RC_OK || all == nullptr || all->hdl == nullptr) {
        return TRACED(-1, kFailure, "_OUT_ CMToArray() Failure!! status=[%d]", status.rc);
    }
    const CMPICount count = all->ft->getSize(all, &status);
    if (status.rc != CMPI_RC_OK) {
        return TRACED(-1, kFailure, "_OUT_ CMToArray() Failure!! status=[%d]", status.rc);
    }
    CmpiHolder<CMPIArray> clone(all->ft->clone(all, &status));
    if (status.rc != CMPI_RC_OK || !clone) {
        return TRACED(-1, kFailure, "_OUT_ CMClone() Failure!! status=[%d]", status.rc);
    }
    *array = clone.handOver();
    return TRACED(static_cast<int>(count), kDetail, "_OUT_ cnt=[%d] *CMPIArray=[%p]", static_cast<int>(count),
                  static_cast<void *>(*array));
}
