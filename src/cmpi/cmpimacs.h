/* SPDX-License-Identifier: Apache-2.0 */
/*
 * CMPI 2.0: convenience macros, which spell the calls of function tables.
 *
 * Macros that take a value and its type cast the value's address themselves. The header sets of brokers differ in some
 * of these, so code that must compile with each of them casts to CMPIValue * itself, takes texts as const char *, and
 * calls the slots enumerateInstances and enumerateInstanceNames directly.
 */
#ifndef TAV_CMPI_CMPIMACS_H
#define TAV_CMPI_CMPIMACS_H

#include "cmpidt.h"
#include "cmpift.h"

/* Making objects: broker first, status last. */
#define CMNewInstance(b, op, st) ((b)->eft->newInstance((b), (op), (st)))
#define CMNewObjectPath(b, ns, cn, st) ((b)->eft->newObjectPath((b), (ns), (cn), (st)))
#define CMNewArgs(b, st) ((b)->eft->newArgs((b), (st)))
#define CMNewString(b, text, st) ((b)->eft->newString((b), (text), (st)))
#define CMNewArray(b, count, type, st) ((b)->eft->newArray((b), (count), (type), (st)))
#define CMNewDateTime(b, st) ((b)->eft->newDateTime((b), (st)))
#define CMNewDateTimeFromBinary(b, us, interval, st) ((b)->eft->newDateTimeFromBinary((b), (us), (interval), (st)))
#define CMNewDateTimeFromChars(b, text, st) ((b)->eft->newDateTimeFromChars((b), (text), (st)))
#define CMNewSelectExp(b, query, lang, columns, st) ((b)->eft->newSelectExp((b), (query), (lang), (columns), (st)))

/* Any object. */
#define CMClone(obj, st) ((obj)->ft->clone((obj), (st)))
#define CMRelease(obj) ((obj)->ft->release((obj)))
#define CMIsNullObject(obj) ((obj) == NULL || *((void *const *)(obj)) == NULL)
#define CMGetType(b, obj, st) ((b)->eft->getType((b), (obj), (st)))
#define CMIsOfType(b, obj, type, st) ((b)->eft->isOfType((b), (obj), (type), (st)))
#define CDToString(b, obj, st) ((b)->eft->toString((b), (obj), (st)))
#define CMClassPathIsA(b, op, cn, st) ((b)->eft->classPathIsA((b), (op), (cn), (st)))

/* Values. The results are zero or not zero. */
#define CMIsNullValue(data) ((data).state & CMPI_nullValue)
#define CMIsKeyValue(data) ((data).state & CMPI_keyValue)
#define CMIsArray(data) ((data).type & CMPI_ARRAY)

/* Statuses. */
#define CMSetStatus(st, code)                                                                                          \
    do {                                                                                                               \
        (st)->rc = (code);                                                                                             \
        (st)->msg = NULL;                                                                                              \
    } while (0)
#define CMSetStatusWithString(st, code, string)                                                                        \
    do {                                                                                                               \
        (st)->rc = (code);                                                                                             \
        (st)->msg = (string);                                                                                          \
    } while (0)
#define CMSetStatusWithChars(b, st, code, text)                                                                        \
    do {                                                                                                               \
        (st)->rc = (code);                                                                                             \
        (st)->msg = (b)->eft->newString((b), (text), NULL);                                                            \
    } while (0)
#define CMReturn(code)                                                                                                 \
    do {                                                                                                               \
        CMPIStatus cmpiStatus_ = {(code), NULL};                                                                       \
        return cmpiStatus_;                                                                                            \
    } while (0)
#define CMReturnWithString(code, string)                                                                               \
    do {                                                                                                               \
        CMPIStatus cmpiStatus_ = {(code), (string)};                                                                   \
        return cmpiStatus_;                                                                                            \
    } while (0)
#define CMReturnWithChars(b, code, text)                                                                               \
    do {                                                                                                               \
        CMPIStatus cmpiStatus_ = {(code), NULL};                                                                       \
        cmpiStatus_.msg = (b)->eft->newString((b), (text), NULL);                                                      \
        return cmpiStatus_;                                                                                            \
    } while (0)

/* Strings. The first needs no call: the handle of a string is its text. */
#define CMGetCharPtr(str) ((char *)(str)->hdl)
#define CMGetCharsPtr(str, st) ((str)->ft->getCharPtr((str), (st)))

/* Instances. */
#define CMGetProperty(inst, name, st) ((inst)->ft->getProperty((inst), (name), (st)))
#define CMGetPropertyAt(inst, index, name, st) ((inst)->ft->getPropertyAt((inst), (index), (name), (st)))
#define CMGetPropertyCount(inst, st) ((inst)->ft->getPropertyCount((inst), (st)))
#define CMSetProperty(inst, name, value, type) ((inst)->ft->setProperty((inst), (name), (CMPIValue *)(value), (type)))
#define CMSetPropertyWithOrigin(inst, name, value, type, origin)                                                       \
    ((inst)->ft->setPropertyWithOrigin((inst), (name), (CMPIValue *)(value), (type), (origin)))
#define CMGetObjectPath(inst, st) ((inst)->ft->getObjectPath((inst), (st)))
#define CMSetObjectPath(inst, op) ((inst)->ft->setObjectPath((inst), (op)))
#define CMSetPropertyFilter(inst, properties, keys) ((inst)->ft->setPropertyFilter((inst), (properties), (keys)))

/* Object paths. */
#define CMSetNameSpace(op, ns) ((op)->ft->setNameSpace((op), (ns)))
#define CMGetNameSpace(op, st) ((op)->ft->getNameSpace((op), (st)))
#define CMSetHostname(op, hn) ((op)->ft->setHostname((op), (hn)))
#define CMGetHostname(op, st) ((op)->ft->getHostname((op), (st)))
#define CMSetClassName(op, cn) ((op)->ft->setClassName((op), (cn)))
#define CMGetClassName(op, st) ((op)->ft->getClassName((op), (st)))
#define CMAddKey(op, name, value, type) ((op)->ft->addKey((op), (name), (CMPIValue *)(value), (type)))
#define CMGetKey(op, name, st) ((op)->ft->getKey((op), (name), (st)))
#define CMGetKeyAt(op, index, name, st) ((op)->ft->getKeyAt((op), (index), (name), (st)))
#define CMGetKeyCount(op, st) ((op)->ft->getKeyCount((op), (st)))
#define CMSetNameSpaceFromObjectPath(op, source) ((op)->ft->setNameSpaceFromObjectPath((op), (source)))
#define CMSetHostAndNameSpaceFromObjectPath(op, source) ((op)->ft->setHostAndNameSpaceFromObjectPath((op), (source)))
#define CMObjectPathToString(op, st) ((op)->ft->toString((op), (st)))

/* Arguments of methods. */
#define CMAddArg(args, name, value, type) ((args)->ft->addArg((args), (name), (CMPIValue *)(value), (type)))
#define CMGetArg(args, name, st) ((args)->ft->getArg((args), (name), (st)))
#define CMGetArgAt(args, index, name, st) ((args)->ft->getArgAt((args), (index), (name), (st)))
#define CMGetArgCount(args, st) ((args)->ft->getArgCount((args), (st)))

/* Arrays and enumerations. */
#define CMGetArrayCount(ar, st) ((ar)->ft->getSize((ar), (st)))
#define CMGetArrayType(ar, st) ((ar)->ft->getSimpleType((ar), (st)))
#define CMGetArrayElementAt(ar, index, st) ((ar)->ft->getElementAt((ar), (index), (st)))
#define CMSetArrayElementAt(ar, index, value, type)                                                                    \
    ((ar)->ft->setElementAt((ar), (index), (CMPIValue *)(value), (type)))
#define CMGetNext(en, st) ((en)->ft->getNext((en), (st)))
#define CMHasNext(en, st) ((en)->ft->hasNext((en), (st)))
#define CMToArray(en, st) ((en)->ft->toArray((en), (st)))

/* Dates. */
#define CMGetBinaryFormat(dt, st) ((dt)->ft->getBinaryFormat((dt), (st)))
#define CMGetStringFormat(dt, st) ((dt)->ft->getStringFormat((dt), (st)))
#define CMIsInterval(dt, st) ((dt)->ft->isInterval((dt), (st)))

/* Contexts. */
#define CMGetContextEntry(ctx, name, st) ((ctx)->ft->getEntry((ctx), (name), (st)))
#define CMGetContextEntryAt(ctx, index, name, st) ((ctx)->ft->getEntryAt((ctx), (index), (name), (st)))
#define CMGetContextEntryCount(ctx, st) ((ctx)->ft->getEntryCount((ctx), (st)))
#define CMAddContextEntry(ctx, name, value, type) ((ctx)->ft->addEntry((ctx), (name), (CMPIValue *)(value), (type)))

/* Results of requests. */
#define CMReturnData(rslt, value, type) ((rslt)->ft->returnData((rslt), (CMPIValue *)(value), (type)))
#define CMReturnInstance(rslt, inst) ((rslt)->ft->returnInstance((rslt), (inst)))
#define CMReturnObjectPath(rslt, op) ((rslt)->ft->returnObjectPath((rslt), (op)))
#define CMReturnDone(rslt) ((rslt)->ft->returnDone((rslt)))

/* Messages. */
#define CMLogMessage(b, severity, id, text, string) ((b)->eft->logMessage((b), (severity), (id), (text), (string)))
#define CMTraceMessage(b, level, component, text, string) ((b)->eft->trace((b), (level), (component), (text), (string)))

/* Requests to the broker. */
#define CBBrokerVersion(b) ((b)->bft->brokerVersion)
#define CBBrokerName(b) ((b)->bft->brokerName)
#define CBPrepareAttachThread(b, ctx) ((b)->bft->prepareAttachThread((b), (ctx)))
#define CBAttachThread(b, ctx) ((b)->bft->attachThread((b), (ctx)))
#define CBDetachThread(b, ctx) ((b)->bft->detachThread((b), (ctx)))
#define CBDeliverIndication(b, ctx, ns, inst) ((b)->bft->deliverIndication((b), (ctx), (ns), (inst)))
#define CBEnumInstanceNames(b, ctx, op, st) ((b)->bft->enumerateInstanceNames((b), (ctx), (op), (st)))
#define CBEnumInstances(b, ctx, op, properties, st) ((b)->bft->enumerateInstances((b), (ctx), (op), (properties), (st)))
#define CBGetInstance(b, ctx, op, properties, st) ((b)->bft->getInstance((b), (ctx), (op), (properties), (st)))
#define CBCreateInstance(b, ctx, op, inst, st) ((b)->bft->createInstance((b), (ctx), (op), (inst), (st)))
#define CBModifyInstance(b, ctx, op, inst, properties)                                                                 \
    ((b)->bft->modifyInstance((b), (ctx), (op), (inst), (properties)))
#define CBDeleteInstance(b, ctx, op) ((b)->bft->deleteInstance((b), (ctx), (op)))
#define CBExecQuery(b, ctx, op, query, lang, st) ((b)->bft->execQuery((b), (ctx), (op), (query), (lang), (st)))
#define CBInvokeMethod(b, ctx, op, method, in, out, st)                                                                \
    ((b)->bft->invokeMethod((b), (ctx), (op), (method), (in), (out), (st)))
#define CBSetProperty(b, ctx, op, name, value, type)                                                                   \
    ((b)->bft->setProperty((b), (ctx), (op), (name), (CMPIValue *)(value), (type)))
#define CBGetProperty(b, ctx, op, name, st) ((b)->bft->getProperty((b), (ctx), (op), (name), (st)))

/*
 * Factories of a provider `name` whose functions begin with `pfx`: the function table, the object and the function that
 * the broker looks up. `broker` is a const CMPIBroker * that keeps the broker handle, `hook` a statement to run first.
 */
#define CMNoHook

#define CMInstanceMIStub(pfx, name, broker, hook)                                                                      \
    static CMPIInstanceMIFT instMIFT__ = {                                                                             \
        CMPICurrentVersion,     CMPICurrentVersion,  "instance" #name, pfx##Cleanup,                                   \
        pfx##EnumInstanceNames, pfx##EnumInstances,  pfx##GetInstance, pfx##CreateInstance,                            \
        pfx##ModifyInstance,    pfx##DeleteInstance, pfx##ExecQuery,                                                   \
    };                                                                                                                 \
    CMPI_EXTERN_C CMPIInstanceMI *name##_Create_InstanceMI(const CMPIBroker *brkr, const CMPIContext *ctx,             \
                                                           CMPIStatus *rc)                                             \
    {                                                                                                                  \
        static CMPIInstanceMI mi = {NULL, &instMIFT__};                                                                \
        (void)ctx;                                                                                                     \
        (void)rc;                                                                                                      \
        broker = brkr;                                                                                                 \
        hook;                                                                                                          \
        return &mi;                                                                                                    \
    }

#define CMMethodMIStub(pfx, name, broker, hook)                                                                        \
    static CMPIMethodMIFT methMIFT__ = {                                                                               \
        CMPICurrentVersion, CMPICurrentVersion, "method" #name, pfx##MethodCleanup, pfx##InvokeMethod,                 \
    };                                                                                                                 \
    CMPI_EXTERN_C CMPIMethodMI *name##_Create_MethodMI(const CMPIBroker *brkr, const CMPIContext *ctx, CMPIStatus *rc) \
    {                                                                                                                  \
        static CMPIMethodMI mi = {NULL, &methMIFT__};                                                                  \
        (void)ctx;                                                                                                     \
        (void)rc;                                                                                                      \
        broker = brkr;                                                                                                 \
        hook;                                                                                                          \
        return &mi;                                                                                                    \
    }

#endif
