// SPDX-License-Identifier: Apache-2.0
// The provider as a broker calls it: by its two function tables.
#pragma once

#include "provider/provider.h"
#include "support/store_fixture.h"

#include <vector>

inline CMPIInstanceMI *makeInstanceMI(const broker::Broker &broker)
{
    CMPIStatus rc = {CMPI_RC_OK, nullptr};
    return TAVStorageProvider_Create_InstanceMI(broker.handle(), broker.emptyContext(), &rc);
}

inline CMPIMethodMI *makeMethodMI(const broker::Broker &broker)
{
    CMPIStatus rc = {CMPI_RC_OK, nullptr};
    return TAVStorageProvider_Create_MethodMI(broker.handle(), broker.emptyContext(), &rc);
}

// The provider's function tables, in the embedded broker on a store that is built.
class EntryPoints : public ServedStore {
protected:
    EntryPoints() : instanceMI(makeInstanceMI(broker)), methodMI(makeMethodMI(broker)) { trace.clear(); }

    broker::Reply get(const char *className, const std::vector<broker::NamedValue> &keys = {})
    {
        const broker::Request request(broker, className, keys);
        return request.reply(
            instanceMI->ft->getInstance(instanceMI, request.context(), request.result(), request.path(), nullptr));
    }
    broker::Reply enumerate(const char *className)
    {
        const broker::Request request(broker, className);
        return request.reply(instanceMI->ft->enumerateInstances(instanceMI, request.context(), request.result(),
                                                                request.path(), nullptr));
    }
    broker::Reply invoke(const char *className, const char *method, const std::vector<broker::NamedValue> &args = {})
    {
        broker::Request request(broker, className);
        request.setIn(args);
        return request.reply(methodMI->ft->invokeMethod(methodMI, request.context(), request.result(), request.path(),
                                                        method, request.in(), request.out()));
    }
    broker::Reply names(const char *className)
    {
        const broker::Request request(broker, className);
        return request.reply(
            instanceMI->ft->enumerateInstanceNames(instanceMI, request.context(), request.result(), request.path()));
    }
    void noThread() { *strgGetThreadID() = 0; }

    CMPIInstanceMI *instanceMI;
    CMPIMethodMI *methodMI;
    static constexpr const char *kGet = "TAV_StorageProviderGetInstance";
    static constexpr const char *kEnum = "TAV_StorageProviderEnumInstances";
    static constexpr const char *kInvoke = "TAV_StorageProviderInvokeMethod";
};
