// SPDX-License-Identifier: Apache-2.0
// The two classes with exactly one record, one instance and no key.
#include "classes/instance.h"

using namespace tavstrg;

namespace {

Outcome getSingle(const RecordClass &member, const InstanceRequest &request)
{
    if (const Outcome refused = refreshClass(member, member.classIdName, request.cInfo)) {
        return refused;
    }
    const RecordsCopy copy(member.classId);
    if (const Outcome refused = copy.check(member)) {
        return refused;
    }
    return returnRecord(member, request, copy.record(0), Following::none);
}

} // namespace

CMPIStatus tavstrg::singletonGetInstance(const RecordClass &member, const InstanceRequest &request)
{
    return tracedRequest(request.cInfo, [&] { return getSingle(member, request); });
}

CMPIInstance *tavstrg::singletonSetPropInst(const RecordClass &member, const InstanceRequest &request,
                                            const void *record)
{
    return buildInstance(member, request, record);
}
