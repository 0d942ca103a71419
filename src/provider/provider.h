// SPDX-License-Identifier: Apache-2.0
// The entry points that the broker reaches through the two function tables. Nothing outside this folder calls them.
// Their parameters are those of the broker's interface.
#pragma once

#include "runtime/mode.h"

// Loads the agent's libraries and makes the store lock usable. Returns 0, or the error of the mutex's initialisation.
int TAV_StorageProviderInitProcess();

extern "C" {

// Factories, found by the broker under these names; each keeps the broker's handle and may be called any number of
// times, also while requests run. rc is not written.
__attribute__((visibility("default"))) CMPIInstanceMI *
TAVStorageProvider_Create_InstanceMI(const CMPIBroker *broker, const CMPIContext *context, CMPIStatus *rc);
__attribute__((visibility("default"))) CMPIMethodMI *
TAVStorageProvider_Create_MethodMI(const CMPIBroker *broker, const CMPIContext *context, CMPIStatus *rc);

// Instance interface.
CMPIStatus TAV_StorageProviderCleanup(CMPIInstanceMI *mi, const CMPIContext *ctx, CMPIBoolean terminating);
CMPIStatus TAV_StorageProviderEnumInstanceNames(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                                const CMPIObjectPath *cop);
CMPIStatus TAV_StorageProviderEnumInstances(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                            const CMPIObjectPath *cop, const char **properties);
CMPIStatus TAV_StorageProviderGetInstance(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                          const CMPIObjectPath *cop, const char **properties);
CMPIStatus TAV_StorageProviderCreateInstance(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                             const CMPIObjectPath *cop, const CMPIInstance *inst);
CMPIStatus TAV_StorageProviderModifyInstance(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                             const CMPIObjectPath *cop, const CMPIInstance *inst,
                                             const char **properties);
// As ModifyInstance; no slot points to it.
CMPIStatus TAV_StorageProviderSetInstance(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                          const CMPIObjectPath *cop, const CMPIInstance *inst, const char **properties);
CMPIStatus TAV_StorageProviderDeleteInstance(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                             const CMPIObjectPath *cop);
CMPIStatus TAV_StorageProviderExecQuery(CMPIInstanceMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                        const CMPIObjectPath *cop, const char *query, const char *lang);

// Method interface.
CMPIStatus TAV_StorageProviderMethodCleanup(CMPIMethodMI *mi, const CMPIContext *ctx, CMPIBoolean terminating);
CMPIStatus TAV_StorageProviderInvokeMethod(CMPIMethodMI *mi, const CMPIContext *ctx, const CMPIResult *rslt,
                                           const CMPIObjectPath *cop, const char *method, const CMPIArgs *in,
                                           CMPIArgs *out);
}
