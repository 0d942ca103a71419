/* SPDX-License-Identifier: Apache-2.0 */
/*
 * CMPI 2.0: objects and function tables.
 *
 * In each function of an object's table the object itself comes first; a CMPIStatus pointer at the end may be null.
 * Comments name the parameters between the two.
 */
#ifndef TAV_CMPI_CMPIFT_H
#define TAV_CMPI_CMPIFT_H

#include "cmpidt.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Objects of the broker. Handle and table are all that a provider sees of them; the broker keeps more behind, so they
 * are never copied by value.
 */
struct _CMPIString {
    void *hdl; /* the terminated text itself */
    CMPIStringFT *ft;
};

struct _CMPIArray {
    void *hdl;
    CMPIArrayFT *ft;
};

struct _CMPIEnumeration {
    void *hdl;
    CMPIEnumerationFT *ft;
};

struct _CMPIInstance {
    void *hdl;
    CMPIInstanceFT *ft;
};

struct _CMPIObjectPath {
    void *hdl;
    CMPIObjectPathFT *ft;
};

struct _CMPIArgs {
    void *hdl;
    CMPIArgsFT *ft;
};

struct _CMPIDateTime {
    void *hdl;
    CMPIDateTimeFT *ft;
};

struct _CMPISelectExp {
    void *hdl;
    CMPISelectExpFT *ft;
};

struct _CMPISelectCond {
    void *hdl;
    CMPISelectCondFT *ft;
};

struct _CMPISubCond {
    void *hdl;
    CMPISubCondFT *ft;
};

struct _CMPIPredicate {
    void *hdl;
    CMPIPredicateFT *ft;
};

struct _CMPIError {
    void *hdl;
    CMPIErrorFT *ft;
};

struct _CMPIContext {
    void *hdl;
    CMPIContextFT *ft;
};

struct _CMPIResult {
    void *hdl;
    CMPIResultFT *ft;
};

struct _CMPIBroker {
    void *hdl;
    CMPIBrokerFT *bft;    /* requests to the broker */
    CMPIBrokerEncFT *eft; /* making objects */
    CMPIBrokerExtFT *xft; /* threads and locks of the system */
    CMPIBrokerMemFT *mft; /* memory; may be null */
};

/* The tables of their functions. */

struct _CMPIStringFT {
    int ftVersion;                                               /* interface version that this table implements */
    CMPIStatus (*release)(CMPIString *);                         /* gives the object back */
    CMPIString *(*clone)(const CMPIString *, CMPIStatus *);      /* deep copy that the caller is to release */
    const char *(*getCharPtr)(const CMPIString *, CMPIStatus *); /* the text, which the object keeps */
};

struct _CMPIArrayFT {
    int ftVersion;                                              /* interface version that this table implements */
    CMPIStatus (*release)(CMPIArray *);                         /* gives the object back */
    CMPIArray *(*clone)(const CMPIArray *, CMPIStatus *);       /* deep copy that the caller is to release */
    CMPICount (*getSize)(const CMPIArray *, CMPIStatus *);      /* number of elements */
    CMPIType (*getSimpleType)(const CMPIArray *, CMPIStatus *); /* element type, without CMPI_ARRAY */
    CMPIData (*getElementAt)(const CMPIArray *, CMPICount, CMPIStatus *); /* by index from 0 */
    /* index, value, type: the element type, or CMPI_null */
    CMPIStatus (*setElementAt)(CMPIArray *, CMPICount, const CMPIValue *, CMPIType);
};

struct _CMPIEnumerationFT {
    int ftVersion;                                                    /* interface version that this table implements */
    CMPIStatus (*release)(CMPIEnumeration *);                         /* gives the object back */
    CMPIEnumeration *(*clone)(const CMPIEnumeration *, CMPIStatus *); /* deep copy that the caller is to release */
    CMPIData (*getNext)(const CMPIEnumeration *, CMPIStatus *);       /* the element at the cursor; moves on */
    CMPIBoolean (*hasNext)(const CMPIEnumeration *, CMPIStatus *);    /* whether getNext would find one */
    CMPIArray *(*toArray)(const CMPIEnumeration *, CMPIStatus *);     /* all elements */
};

struct _CMPIInstanceFT {
    int ftVersion;                                              /* interface version that this table implements */
    CMPIStatus (*release)(CMPIInstance *);                      /* gives the object back */
    CMPIInstance *(*clone)(const CMPIInstance *, CMPIStatus *); /* deep copy that the caller is to release */
    CMPIData (*getProperty)(const CMPIInstance *, const char *, CMPIStatus *); /* by name */
    /* by index from 0; the name too, if wanted */
    CMPIData (*getPropertyAt)(const CMPIInstance *, CMPICount, CMPIString **, CMPIStatus *);
    CMPICount (*getPropertyCount)(const CMPIInstance *, CMPIStatus *); /* how many it has */
    /* name, value (null for NULL), type */
    CMPIStatus (*setProperty)(const CMPIInstance *, const char *, const CMPIValue *, CMPIType);
    CMPIObjectPath *(*getObjectPath)(const CMPIInstance *, CMPIStatus *); /* a new path of name space, class and keys */
    /* names that may be set; second list without meaning */
    CMPIStatus (*setPropertyFilter)(CMPIInstance *, const char **, const char **);
    CMPIStatus (*setObjectPath)(CMPIInstance *, const CMPIObjectPath *); /* takes over name space, class and keys */
    /* setProperty, with the class that declares it */
    CMPIStatus (*setPropertyWithOrigin)(const CMPIInstance *, const char *, const CMPIValue *, const CMPIType,
                                        const char *);
};

struct _CMPIObjectPathFT {
    int ftVersion;                                                  /* interface version that this table implements */
    CMPIStatus (*release)(CMPIObjectPath *);                        /* gives the object back */
    CMPIObjectPath *(*clone)(const CMPIObjectPath *, CMPIStatus *); /* deep copy that the caller is to release */
    CMPIStatus (*setNameSpace)(CMPIObjectPath *, const char *);
    CMPIString *(*getNameSpace)(const CMPIObjectPath *, CMPIStatus *); /* a new string */
    CMPIStatus (*setHostname)(CMPIObjectPath *, const char *);
    CMPIString *(*getHostname)(const CMPIObjectPath *, CMPIStatus *); /* a new string */
    CMPIStatus (*setClassName)(CMPIObjectPath *, const char *);
    CMPIString *(*getClassName)(const CMPIObjectPath *, CMPIStatus *); /* a new string */
    /* name, value, type; an equal name is replaced */
    CMPIStatus (*addKey)(CMPIObjectPath *, const char *, const CMPIValue *, const CMPIType);
    CMPIData (*getKey)(const CMPIObjectPath *, const char *, CMPIStatus *); /* by name */
    /* by index from 0; the name too, if wanted */
    CMPIData (*getKeyAt)(const CMPIObjectPath *, CMPICount, CMPIString **, CMPIStatus *);
    CMPICount (*getKeyCount)(const CMPIObjectPath *, CMPIStatus *);                            /* how many it has */
    CMPIStatus (*setNameSpaceFromObjectPath)(CMPIObjectPath *, const CMPIObjectPath *);        /* target, source */
    CMPIStatus (*setHostAndNameSpaceFromObjectPath)(CMPIObjectPath *, const CMPIObjectPath *); /* target, source */
    CMPIData (*getClassQualifier)(const CMPIObjectPath *, const char *, CMPIStatus *);         /* qualifier */
    /* property, qualifier */
    CMPIData (*getPropertyQualifier)(const CMPIObjectPath *, const char *, const char *, CMPIStatus *);
    /* method, qualifier */
    CMPIData (*getMethodQualifier)(const CMPIObjectPath *, const char *, const char *, CMPIStatus *);
    /* method, parameter, qualifier */
    CMPIData (*getParameterQualifier)(const CMPIObjectPath *, const char *, const char *, const char *, CMPIStatus *);
    CMPIString *(*toString)(const CMPIObjectPath *, CMPIStatus *); /* for people */
};

struct _CMPIArgsFT {
    int ftVersion;                                      /* interface version that this table implements */
    CMPIStatus (*release)(CMPIArgs *);                  /* gives the object back */
    CMPIArgs *(*clone)(const CMPIArgs *, CMPIStatus *); /* deep copy that the caller is to release */
    /* name, value, type; an equal name is replaced */
    CMPIStatus (*addArg)(const CMPIArgs *, const char *, const CMPIValue *, const CMPIType);
    CMPIData (*getArg)(const CMPIArgs *, const char *, CMPIStatus *); /* by name */
    /* by index from 0; the name too, if wanted */
    CMPIData (*getArgAt)(const CMPIArgs *, CMPICount, CMPIString **, CMPIStatus *);
    CMPICount (*getArgCount)(const CMPIArgs *, CMPIStatus *); /* how many there are */
};

struct _CMPIDateTimeFT {
    int ftVersion;                                              /* interface version that this table implements */
    CMPIStatus (*release)(CMPIDateTime *);                      /* gives the object back */
    CMPIDateTime *(*clone)(const CMPIDateTime *, CMPIStatus *); /* deep copy that the caller is to release */
    /* microseconds: since 1970, or of the interval */
    CMPIUint64 (*getBinaryFormat)(const CMPIDateTime *, CMPIStatus *);
    CMPIString *(*getStringFormat)(const CMPIDateTime *, CMPIStatus *); /* the 25 characters of a CIM date */
    CMPIBoolean (*isInterval)(const CMPIDateTime *, CMPIStatus *);      /* a length of time, not a moment */
};

struct _CMPISelectExpFT {
    int ftVersion;                                                /* interface version that this table implements */
    CMPIStatus (*release)(CMPISelectExp *);                       /* gives the object back */
    CMPISelectExp *(*clone)(const CMPISelectExp *, CMPIStatus *); /* deep copy that the caller is to release */
    CMPIBoolean (*evaluate)(const CMPISelectExp *, const CMPIInstance *, CMPIStatus *); /* does the instance match */
    CMPIString *(*getString)(const CMPISelectExp *, CMPIStatus *);                      /* the query */
    CMPISelectCond *(*getDOC)(const CMPISelectExp *, CMPIStatus *); /* disjunction of conjunctions */
    CMPISelectCond *(*getCOD)(const CMPISelectExp *, CMPIStatus *); /* conjunction of disjunctions */
    /* the same, values by a function */
    CMPIBoolean (*evaluateUsingAccessor)(const CMPISelectExp *, CMPIAccessor *, void *, CMPIStatus *);
};

struct _CMPISelectCondFT {
    const int ftVersion;                                            /* interface version that this table implements */
    CMPIStatus (*release)(CMPISelectCond *);                        /* gives the object back */
    CMPISelectCond *(*clone)(const CMPISelectCond *, CMPIStatus *); /* deep copy that the caller is to release */
    CMPICount (*getCountAndType)(const CMPISelectCond *, int *, CMPIStatus *); /* parts; 0 DOC, 1 COD */
    CMPISubCond *(*getSubCondAt)(const CMPISelectCond *, CMPICount, CMPIStatus *);
};

struct _CMPISubCondFT {
    int ftVersion;                                            /* interface version that this table implements */
    CMPIStatus (*release)(CMPISubCond *);                     /* gives the object back */
    CMPISubCond *(*clone)(const CMPISubCond *, CMPIStatus *); /* deep copy that the caller is to release */
    CMPICount (*getCount)(const CMPISubCond *, CMPIStatus *); /* predicates */
    CMPIPredicate *(*getPredicateAt)(const CMPISubCond *, CMPICount, CMPIStatus *);
    CMPIPredicate *(*getPredicate)(const CMPISubCond *, const char *, CMPIStatus *); /* by name of its left side */
};

struct _CMPIPredicateFT {
    int ftVersion;                                                /* interface version that this table implements */
    CMPIStatus (*release)(CMPIPredicate *);                       /* gives the object back */
    CMPIPredicate *(*clone)(const CMPIPredicate *, CMPIStatus *); /* deep copy that the caller is to release */
    /* type, operation, left side, right side */
    CMPIStatus (*getData)(const CMPIPredicate *, CMPIType *, CMPIPredOp *, CMPIString **, CMPIString **);
    CMPIBoolean (*evaluateUsingAccessor)(const CMPIPredicate *, CMPIAccessor *, void *, CMPIStatus *);
};

struct _CMPIErrorFT {
    CMPISint32 ftVersion;                                 /* interface version that this table implements */
    CMPIStatus (*release)(CMPIError *);                   /* gives the object back */
    CMPIError *(*clone)(const CMPIError *, CMPIStatus *); /* deep copy that the caller is to release */
    CMPIErrorType (*getErrorType)(const CMPIError *, CMPIStatus *);
    CMPIString *(*getOtherErrorType)(const CMPIError *, CMPIStatus *);
    CMPIString *(*getOwningEntity)(const CMPIError *, CMPIStatus *);
    CMPIString *(*getMessageID)(const CMPIError *, CMPIStatus *);
    CMPIString *(*getMessage)(const CMPIError *, CMPIStatus *);
    CMPIErrorSeverity (*getPerceivedSeverity)(const CMPIError *, CMPIStatus *);
    CMPIErrorProbableCause (*getProbableCause)(const CMPIError *, CMPIStatus *);
    CMPIString *(*getProbableCauseDescription)(const CMPIError *, CMPIStatus *);
    CMPIArray *(*getRecommendedActions)(const CMPIError *, CMPIStatus *);
    CMPIString *(*getErrorSource)(const CMPIError *, CMPIStatus *);
    CMPIErrorSrcFormat (*getErrorSourceFormat)(const CMPIError *, CMPIStatus *);
    CMPIString *(*getOtherErrorSourceFormat)(const CMPIError *, CMPIStatus *);
    CMPIrc (*getCIMStatusCode)(const CMPIError *, CMPIStatus *);
    CMPIString *(*getCIMStatusCodeDescription)(const CMPIError *, CMPIStatus *);
    CMPIArray *(*getMessageArguments)(const CMPIError *, CMPIStatus *);
    CMPIStatus (*setErrorType)(CMPIError *, const CMPIErrorType);
    CMPIStatus (*setOtherErrorType)(CMPIError *, const char *);
    CMPIStatus (*setProbableCauseDescription)(CMPIError *, const char *);
    CMPIStatus (*setRecommendedActions)(CMPIError *, const CMPIArray *);
    CMPIStatus (*setErrorSource)(CMPIError *, const char *);
    CMPIStatus (*setErrorSourceFormat)(CMPIError *, const CMPIErrorSrcFormat);
    CMPIStatus (*setOtherErrorSourceFormat)(CMPIError *, const char *);
    CMPIStatus (*setCIMStatusCodeDescription)(CMPIError *, const char *);
    CMPIStatus (*setMessageArguments)(CMPIError *, CMPIArray *);
};

struct _CMPIContextFT {
    int ftVersion;                                            /* interface version that this table implements */
    CMPIStatus (*release)(CMPIContext *);                     /* gives the object back */
    CMPIContext *(*clone)(const CMPIContext *, CMPIStatus *); /* deep copy that the caller is to release */
    CMPIData (*getEntry)(const CMPIContext *, const char *, CMPIStatus *); /* by name */
    /* by index from 0; the name too, if wanted */
    CMPIData (*getEntryAt)(const CMPIContext *, CMPICount, CMPIString **, CMPIStatus *);
    CMPICount (*getEntryCount)(const CMPIContext *, CMPIStatus *); /* how many there are */
    /* name, value, type */
    CMPIStatus (*addEntry)(const CMPIContext *, const char *, const CMPIValue *, const CMPIType);
};

/* What a request came to is handed over through its result object. */
struct _CMPIResultFT {
    int ftVersion;                                          /* interface version that this table implements */
    CMPIStatus (*release)(CMPIResult *);                    /* gives the object back */
    CMPIResult *(*clone)(const CMPIResult *, CMPIStatus *); /* deep copy that the caller is to release */
    CMPIStatus (*returnData)(const CMPIResult *, const CMPIValue *, const CMPIType); /* one value and its type */
    CMPIStatus (*returnInstance)(const CMPIResult *, const CMPIInstance *);          /* copies */
    CMPIStatus (*returnObjectPath)(const CMPIResult *, const CMPIObjectPath *);      /* copies */
    CMPIStatus (*returnDone)(const CMPIResult *);                                    /* nothing follows */
    CMPIStatus (*returnError)(const CMPIResult *, const CMPIError *);                /* adds an error object */
};

/* The broker's tables. The first has no version of its own. */

struct _CMPIBrokerFT {
    unsigned int brokerCapabilities; /* CMPI_MB_... bits */
    unsigned int brokerVersion;      /* interface version of the broker */
    const char *brokerName;          /* for people */
    /* context for a thread that is about to be made */
    CMPIContext *(*prepareAttachThread)(const CMPIBroker *, const CMPIContext *);
    CMPIStatus (*attachThread)(const CMPIBroker *, const CMPIContext *); /* first call of such a thread */
    CMPIStatus (*detachThread)(const CMPIBroker *, const CMPIContext *); /* its last call; ends the context */
    /* context, name space, indication */
    CMPIStatus (*deliverIndication)(const CMPIBroker *, const CMPIContext *, const char *, const CMPIInstance *);
    /* paths of all instances of a class */
    CMPIEnumeration *(*enumerateInstanceNames)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *,
                                               CMPIStatus *);
    /* path, property list or null */
    CMPIInstance *(*getInstance)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const char **,
                                 CMPIStatus *);
    /* path, values; the new path */
    CMPIObjectPath *(*createInstance)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *,
                                      const CMPIInstance *, CMPIStatus *);
    /* path, values, property list or null */
    CMPIStatus (*modifyInstance)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const CMPIInstance *,
                                 const char **);
    CMPIStatus (*deleteInstance)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *); /* path */
    /* path, query, language */
    CMPIEnumeration *(*execQuery)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const char *,
                                  const char *, CMPIStatus *);
    /* path, property list or null */
    CMPIEnumeration *(*enumerateInstances)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *,
                                           const char **, CMPIStatus *);
    /* path, association class, result class, role, result role, property list */
    CMPIEnumeration *(*associators)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const char *,
                                    const char *, const char *, const char *, const char **, CMPIStatus *);
    /* the same, paths only */
    CMPIEnumeration *(*associatorNames)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const char *,
                                        const char *, const char *, const char *, CMPIStatus *);
    /* path, result class, role, property list */
    CMPIEnumeration *(*references)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const char *,
                                   const char *, const char **, CMPIStatus *);
    /* the same, paths only */
    CMPIEnumeration *(*referenceNames)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const char *,
                                       const char *, CMPIStatus *);
    /* path, method, arguments in, arguments out */
    CMPIData (*invokeMethod)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const char *,
                             const CMPIArgs *, CMPIArgs *, CMPIStatus *);
    /* path, name, value, type */
    CMPIStatus (*setProperty)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const char *,
                              const CMPIValue *, CMPIType);
    /* path, name */
    CMPIData (*getProperty)(const CMPIBroker *, const CMPIContext *, const CMPIObjectPath *, const char *,
                            CMPIStatus *);
};

struct _CMPIBrokerEncFT {
    int ftVersion; /* interface version that this table implements */
    /* of the class, name space and keys of a path */
    CMPIInstance *(*newInstance)(const CMPIBroker *, const CMPIObjectPath *, CMPIStatus *);
    /* name space, class */
    CMPIObjectPath *(*newObjectPath)(const CMPIBroker *, const char *, const char *, CMPIStatus *);
    CMPIArgs *(*newArgs)(const CMPIBroker *, CMPIStatus *);                        /* without arguments */
    CMPIString *(*newString)(const CMPIBroker *, const char *, CMPIStatus *);      /* copies the text */
    CMPIArray *(*newArray)(const CMPIBroker *, CMPICount, CMPIType, CMPIStatus *); /* number of elements, type */
    CMPIDateTime *(*newDateTime)(const CMPIBroker *, CMPIStatus *);                /* now */
    /* microseconds, interval or not */
    CMPIDateTime *(*newDateTimeFromBinary)(const CMPIBroker *, CMPIUint64, CMPIBoolean, CMPIStatus *);
    CMPIDateTime *(*newDateTimeFromChars)(const CMPIBroker *, const char *, CMPIStatus *); /* 25 characters */
    /* query, language, columns */
    CMPISelectExp *(*newSelectExp)(const CMPIBroker *, const char *, const char *, CMPIArray **, CMPIStatus *);
    /* path, class: is it one, or derived from it */
    CMPIBoolean (*classPathIsA)(const CMPIBroker *, const CMPIObjectPath *, const char *, CMPIStatus *);
    CMPIString *(*toString)(const CMPIBroker *, const void *, CMPIStatus *); /* any object, for people */
    /* any object, name of its type */
    CMPIBoolean (*isOfType)(const CMPIBroker *, const void *, const char *, CMPIStatus *);
    CMPIString *(*getType)(const CMPIBroker *, const void *, CMPIStatus *); /* name of the type of any object */
    /* id, default text, status, count of inserts, inserts */
    CMPIString *(*getMessage)(const CMPIBroker *, const char *, const char *, CMPIStatus *, CMPICount, ...);
    /* severity, id, text, or a string without a text */
    CMPIStatus (*logMessage)(const CMPIBroker *, int, const char *, const char *, const CMPIString *);
    /* level, component, text, or a string without a text */
    CMPIStatus (*trace)(const CMPIBroker *, int, const char *, const char *, const CMPIString *);
    /* owner, id, text, severity, cause, code */
    CMPIError *(*newCMPIError)(const CMPIBroker *, const char *, const char *, const char *, const CMPIErrorSeverity,
                               const CMPIErrorProbableCause, const CMPIrc, CMPIStatus *);
    CMPIStatus (*openMessageFile)(const CMPIBroker *, const char *, CMPIMsgFileHandle *); /* name, handle */
    CMPIStatus (*closeMessageFile)(const CMPIBroker *, const CMPIMsgFileHandle);          /* handle */
    /* getMessage with an open file */
    CMPIString *(*getMessage2)(const CMPIBroker *, const char *, const CMPIMsgFileHandle, const char *, CMPIStatus *,
                               CMPICount, ...);
};

struct _CMPIBrokerExtFT {
    int ftVersion;                                             /* interface version that this table implements */
    char *(*resolveFileName)(const char *);                    /* file name of a shared library */
    void *(*newThread)(void *(*)(void *), void *, int);        /* function, argument, detached or not */
    int (*joinThread)(void *, void **);                        /* thread, its result */
    int (*exitThread)(void *);                                 /* result */
    int (*cancelThread)(void *);                               /* thread */
    int (*threadSleep)(CMPIUint32);                            /* milliseconds */
    int (*threadOnce)(int *, void (*)(void));                  /* control word, function */
    int (*createThreadKey)(unsigned long *, void (*)(void *)); /* key, destructor */
    int (*destroyThreadKey)(unsigned long);
    void *(*getThreadSpecific)(unsigned long);
    int (*setThreadSpecific)(unsigned long, void *);
    void *(*newMutex)(int); /* options */
    void (*destroyMutex)(void *);
    void (*lockMutex)(void *);
    void (*unlockMutex)(void *);
    void *(*newCondition)(int); /* options */
    void (*destroyCondition)(void *);
    int (*condWait)(void *, void *);                         /* condition, mutex */
    int (*timedCondWait)(void *, void *, struct timespec *); /* condition, mutex, until when */
    int (*signalCondition)(void *);                          /* wakes one */
};

struct _CMPIBrokerMemFT {
    const int ftVersion;                                           /* interface version that this table implements */
    CMPIGcStat *(*mark)(const CMPIBroker *, CMPIStatus *);         /* start of a heap of its own for this thread */
    CMPIStatus (*release)(const CMPIBroker *, const CMPIGcStat *); /* frees what was made since the mark */
    void *(*cmpiMalloc)(const CMPIBroker *, size_t);               /* freed with the request at the latest */
    void *(*cmpiCalloc)(const CMPIBroker *, size_t, size_t);       /* count, size */
    void *(*cmpiRealloc)(const CMPIBroker *, void *, size_t);
    char *(*cmpiStrDup)(const CMPIBroker *, const char *);
    void (*cmpiFree)(const CMPIBroker *, void *);
    void (*freeInstance)(const CMPIBroker *, CMPIInstance *);
    void (*freeObjectPath)(const CMPIBroker *, CMPIObjectPath *);
    void (*freeArgs)(const CMPIBroker *, CMPIArgs *);
    void (*freeString)(const CMPIBroker *, CMPIString *);
    void (*freeArray)(const CMPIBroker *, CMPIArray *);
    void (*freeDateTime)(const CMPIBroker *, CMPIDateTime *);
    void (*freeSelectExp)(const CMPIBroker *, CMPISelectExp *);
};

/*
 * A provider: its objects and tables, as its factories return them. Functions get the provider's object, the context
 * and the result of the request, and the path that it names; comments name what follows.
 */

struct _CMPIInstanceMI {
    const void *hdl;
    CMPIInstanceMIFT *ft;
};

struct _CMPIMethodMI {
    void *hdl;
    CMPIMethodMIFT *ft;
};

struct _CMPIAssociationMI {
    void *hdl;
    CMPIAssociationMIFT *ft;
};

struct _CMPIPropertyMI {
    void *hdl;
    CMPIPropertyMIFT *ft;
};

struct _CMPIIndicationMI {
    void *hdl;
    CMPIIndicationMIFT *ft;
};

struct _CMPIInstanceMIFT {
    int ftVersion;      /* interface version of this table */
    int miVersion;      /* version of the provider */
    const char *miName; /* for people */
    /* before unloading; non-zero: the broker ends */
    CMPIStatus (*cleanup)(CMPIInstanceMI *, const CMPIContext *, CMPIBoolean);
    CMPIStatus (*enumerateInstanceNames)(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *,
                                         const CMPIObjectPath *);
    /* property list or null */
    CMPIStatus (*enumerateInstances)(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                                     const char **);
    /* property list or null */
    CMPIStatus (*getInstance)(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                              const char **);
    /* values */
    CMPIStatus (*createInstance)(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                                 const CMPIInstance *);
    /* values, property list or null */
    CMPIStatus (*modifyInstance)(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                                 const CMPIInstance *, const char **);
    CMPIStatus (*deleteInstance)(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *);
    /* query, language */
    CMPIStatus (*execQuery)(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                            const char *, const char *);
};

struct _CMPIMethodMIFT {
    int ftVersion;      /* interface version of this table */
    int miVersion;      /* version of the provider */
    const char *miName; /* for people */
    /* before unloading; non-zero: the broker ends */
    CMPIStatus (*cleanup)(CMPIMethodMI *, const CMPIContext *, CMPIBoolean);
    /* method, arguments in, arguments out */
    CMPIStatus (*invokeMethod)(CMPIMethodMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                               const char *, const CMPIArgs *, CMPIArgs *);
};

struct _CMPIAssociationMIFT {
    int ftVersion;
    const CMPISint32 miVersion;
    const char *miName;
    CMPIStatus (*cleanup)(CMPIAssociationMI *, const CMPIContext *, CMPIBoolean);
    /* association class, result class, role, result role, property list */
    CMPIStatus (*associators)(CMPIAssociationMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                              const char *, const char *, const char *, const char *, const char **);
    CMPIStatus (*associatorNames)(CMPIAssociationMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                                  const char *, const char *, const char *, const char *);
    CMPIStatus (*references)(CMPIAssociationMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                             const char *, const char *, const char **);
    CMPIStatus (*referenceNames)(CMPIAssociationMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                                 const char *, const char *);
};

struct _CMPIPropertyMIFT {
    int ftVersion;
    int miVersion;
    const char *miName;
    CMPIStatus (*cleanup)(CMPIPropertyMI *, const CMPIContext *, CMPIBoolean);
    CMPIStatus (*setProperty)(CMPIPropertyMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                              const char *, const CMPIData);
    CMPIStatus (*getProperty)(CMPIPropertyMI *, const CMPIContext *, const CMPIResult *, const CMPIObjectPath *,
                              const char *);
    CMPIStatus (*setPropertyWithOrigin)(CMPIPropertyMI *, const CMPIContext *, const CMPIResult *, CMPIObjectPath *,
                                        const char *, const CMPIData, const char *);
};

struct _CMPIIndicationMIFT {
    int ftVersion;
    int miVersion;
    const char *miName;
    CMPIStatus (*cleanup)(CMPIIndicationMI *, const CMPIContext *, CMPIBoolean);
    CMPIStatus (*authorizeFilter)(CMPIIndicationMI *, const CMPIContext *, const CMPISelectExp *, const char *,
                                  const CMPIObjectPath *, const char *);
    CMPIStatus (*mustPoll)(CMPIIndicationMI *, const CMPIContext *, const CMPISelectExp *, const char *,
                           const CMPIObjectPath *);
    CMPIStatus (*activateFilter)(CMPIIndicationMI *, const CMPIContext *, const CMPISelectExp *, const char *,
                                 const CMPIObjectPath *, CMPIBoolean);
    CMPIStatus (*deActivateFilter)(CMPIIndicationMI *, const CMPIContext *, const CMPISelectExp *, const char *,
                                   const CMPIObjectPath *, CMPIBoolean);
    CMPIStatus (*enableIndications)(CMPIIndicationMI *, const CMPIContext *);
    CMPIStatus (*disableIndications)(CMPIIndicationMI *, const CMPIContext *);
};

#ifdef __cplusplus
}
#endif

#include "cmpimacs.h"

#endif
