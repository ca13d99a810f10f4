/*
 * Function tables of the CMPI 2.0 provider interface: the broker's service tables, every
 * encapsulated object ({hdl, ft} pair) with its table, and the tables a provider (MI) hands to the
 * object manager. The order of the slots in each table is the binary contract between a provider
 * library and the object manager that loads it: a slot is never moved, removed or inserted.
 */
#ifndef DIAGCORE_CMPI_CMPIFT_H
#define DIAGCORE_CMPI_CMPIFT_H

#include "cmpidt.h"
#include "cmpios.h"

#ifdef __cplusplus
extern "C" {
#endif

struct timespec;

/* ========================================================================================= */
/* Broker                                                                                    */
/* ========================================================================================= */

/* The object manager as a provider sees it: passed to every MI factory and to most services. */
struct _CMPIBroker {
    void* hdl;
    CMPIBrokerFT* bft;    /* thread registration, indications, up-calls */
    CMPIBrokerEncFT* eft; /* factories and helpers */
    CMPIBrokerExtFT* xft; /* operating-system services */
#ifdef CMPI_VER_200
    CMPIBrokerMemFT* mft; /* memory services; may be NULL */
#endif
};

/* Up-calls into the object manager. Name lists ("properties") are NULL-terminated arrays of
   property names, or NULL for all properties. */
struct _CMPIBrokerFT {
    unsigned int brokerCapabilities; /* CMPI_MB_* bits */
    unsigned int brokerVersion;      /* interface level the broker supports, e.g. 200 */
    const char* brokerName;

    /* Threads a provider starts itself must be announced before they call the broker. */
    CMPIContext* (*prepareAttachThread)(const CMPIBroker* mb, const CMPIContext* ctx);
    CMPIStatus (*attachThread)(const CMPIBroker* mb, const CMPIContext* ctx);
    CMPIStatus (*detachThread)(const CMPIBroker* mb, const CMPIContext* ctx);

    CMPIStatus (*deliverIndication)(const CMPIBroker* mb, const CMPIContext* ctx, const char* ns,
                                    const CMPIInstance* ind);

    CMPIEnumeration* (*enumerateInstanceNames)(const CMPIBroker* mb, const CMPIContext* ctx,
                                               const CMPIObjectPath* classPath, CMPIStatus* rc);
    CMPIInstance* (*getInstance)(const CMPIBroker* mb, const CMPIContext* ctx,
                                 const CMPIObjectPath* instPath, const char** properties,
                                 CMPIStatus* rc);
    CMPIObjectPath* (*createInstance)(const CMPIBroker* mb, const CMPIContext* ctx,
                                      const CMPIObjectPath* classPath, const CMPIInstance* inst,
                                      CMPIStatus* rc);
    CMPIStatus (*modifyInstance)(const CMPIBroker* mb, const CMPIContext* ctx,
                                 const CMPIObjectPath* instPath, const CMPIInstance* modInst,
                                 const char** properties);
    CMPIStatus (*deleteInstance)(const CMPIBroker* mb, const CMPIContext* ctx,
                                 const CMPIObjectPath* instPath);
    CMPIEnumeration* (*execQuery)(const CMPIBroker* mb, const CMPIContext* ctx,
                                  const CMPIObjectPath* classPath, const char* query,
                                  const char* lang, CMPIStatus* rc);
    CMPIEnumeration* (*enumerateInstances)(const CMPIBroker* mb, const CMPIContext* ctx,
                                           const CMPIObjectPath* classPath, const char** properties,
                                           CMPIStatus* rc);
    CMPIEnumeration* (*associators)(const CMPIBroker* mb, const CMPIContext* ctx,
                                    const CMPIObjectPath* instPath, const char* assocClass,
                                    const char* resultClass, const char* role,
                                    const char* resultRole, const char** properties,
                                    CMPIStatus* rc);
    CMPIEnumeration* (*associatorNames)(const CMPIBroker* mb, const CMPIContext* ctx,
                                        const CMPIObjectPath* instPath, const char* assocClass,
                                        const char* resultClass, const char* role,
                                        const char* resultRole, CMPIStatus* rc);
    CMPIEnumeration* (*references)(const CMPIBroker* mb, const CMPIContext* ctx,
                                   const CMPIObjectPath* instPath, const char* resultClass,
                                   const char* role, const char** properties, CMPIStatus* rc);
    CMPIEnumeration* (*referenceNames)(const CMPIBroker* mb, const CMPIContext* ctx,
                                       const CMPIObjectPath* instPath, const char* resultClass,
                                       const char* role, CMPIStatus* rc);
    CMPIData (*invokeMethod)(const CMPIBroker* mb, const CMPIContext* ctx,
                             const CMPIObjectPath* objPath, const char* method, const CMPIArgs* in,
                             CMPIArgs* out, CMPIStatus* rc);
    CMPIStatus (*setProperty)(const CMPIBroker* mb, const CMPIContext* ctx,
                              const CMPIObjectPath* instPath, const char* name,
                              const CMPIValue* value, CMPIType type);
    CMPIData (*getProperty)(const CMPIBroker* mb, const CMPIContext* ctx,
                            const CMPIObjectPath* instPath, const char* name, CMPIStatus* rc);
};

/* Factories for encapsulated objects plus type checks, messages, logging and tracing. */
struct _CMPIBrokerEncFT {
    int ftVersion;

    CMPIInstance* (*newInstance)(const CMPIBroker* mb, const CMPIObjectPath* instPath,
                                 CMPIStatus* rc);
    CMPIObjectPath* (*newObjectPath)(const CMPIBroker* mb, const char* ns, const char* className,
                                     CMPIStatus* rc);
    CMPIArgs* (*newArgs)(const CMPIBroker* mb, CMPIStatus* rc);
    CMPIString* (*newString)(const CMPIBroker* mb, const char* data, CMPIStatus* rc);
    CMPIArray* (*newArray)(const CMPIBroker* mb, CMPICount size, CMPIType type, CMPIStatus* rc);
    CMPIDateTime* (*newDateTime)(const CMPIBroker* mb, CMPIStatus* rc);
    /* binTime: microseconds since the epoch, or the length of an interval when interval is set. */
    CMPIDateTime* (*newDateTimeFromBinary)(const CMPIBroker* mb, CMPIUint64 binTime,
                                           CMPIBoolean interval, CMPIStatus* rc);
    CMPIDateTime* (*newDateTimeFromChars)(const CMPIBroker* mb, const char* datetime,
                                          CMPIStatus* rc);
    CMPISelectExp* (*newSelectExp)(const CMPIBroker* mb, const char* query, const char* lang,
                                   CMPIArray** projection, CMPIStatus* rc);
    CMPIBoolean (*classPathIsA)(const CMPIBroker* mb, const CMPIObjectPath* classPath,
                                const char* className, CMPIStatus* rc);

    /* Debugging aids that work on any encapsulated object. */
    CMPIString* (*toString)(const CMPIBroker* mb, const void* object, CMPIStatus* rc);
    CMPIBoolean (*isOfType)(const CMPIBroker* mb, const void* object, const char* type,
                            CMPIStatus* rc);
    CMPIString* (*getType)(const CMPIBroker* mb, const void* object, CMPIStatus* rc);

    /* Message lookup with count insert values following as (CMPIType, value) pairs. */
    CMPIString* (*getMessage)(const CMPIBroker* mb, const char* msgId, const char* defMsg,
                              CMPIStatus* rc, CMPICount count, ...);

    /* severity is a CMPISeverity, level a CMPILevel; text wins over string when both are set. */
    CMPIStatus (*logMessage)(const CMPIBroker* mb, int severity, const char* id, const char* text,
                             const CMPIString* string);
    CMPIStatus (*trace)(const CMPIBroker* mb, int level, const char* component, const char* text,
                        const CMPIString* string);

#ifdef CMPI_VER_200
    CMPIError* (*newCMPIError)(const CMPIBroker* mb, const char* owner, const char* msgID,
                               const char* msg, const CMPIErrorSeverity sev,
                               const CMPIErrorProbableCause pc, const CMPIrc cimStatusCode,
                               CMPIStatus* rc);
    CMPIStatus (*openMessageFile)(const CMPIBroker* mb, const char* msgFile,
                                  CMPIMsgFileHandle* msgFileHandle);
    CMPIStatus (*closeMessageFile)(const CMPIBroker* mb, const CMPIMsgFileHandle msgFileHandle);
    CMPIString* (*getMessage2)(const CMPIBroker* mb, const char* msgId,
                               const CMPIMsgFileHandle msgFileHandle, const char* defMsg,
                               CMPIStatus* rc, CMPICount count, ...);
#endif
};

/* Operating-system services with POSIX semantics. */
struct _CMPIBrokerExtFT {
    int ftVersion;

    /* Turns a generic library name into the platform's file name; the caller frees the result. */
    char* (*resolveFileName)(const char* filename);

    CMPI_THREAD_TYPE (*newThread)(CMPIThreadFunc start, void* parm, int detached);
    int (*joinThread)(CMPI_THREAD_TYPE thread, CMPI_THREAD_RETURN* retval);
    int (*exitThread)(CMPI_THREAD_RETURN returnCode);
    int (*cancelThread)(CMPI_THREAD_TYPE thread);
    int (*threadSleep)(CMPIUint32 msec);
    int (*threadOnce)(int* once, void (*init)(void));

    int (*createThreadKey)(CMPI_THREAD_KEY_TYPE* key, void (*cleanup)(void*));
    int (*destroyThreadKey)(CMPI_THREAD_KEY_TYPE key);
    void* (*getThreadSpecific)(CMPI_THREAD_KEY_TYPE key);
    int (*setThreadSpecific)(CMPI_THREAD_KEY_TYPE key, void* value);

    CMPI_MUTEX_TYPE (*newMutex)(int opt);
    void (*destroyMutex)(CMPI_MUTEX_TYPE mutex);
    void (*lockMutex)(CMPI_MUTEX_TYPE mutex);
    void (*unlockMutex)(CMPI_MUTEX_TYPE mutex);

    CMPI_COND_TYPE (*newCondition)(int opt);
    void (*destroyCondition)(CMPI_COND_TYPE cond);
    int (*condWait)(CMPI_COND_TYPE cond, CMPI_MUTEX_TYPE mutex);
    int (*timedCondWait)(CMPI_COND_TYPE cond, CMPI_MUTEX_TYPE mutex, struct timespec* wait);
    int (*signalCondition)(CMPI_COND_TYPE cond);
};

#ifdef CMPI_VER_200
/* Memory services: objects made after mark() are freed together by release(). */
struct _CMPIBrokerMemFT {
    int ftVersion;

    CMPIGcStat* (*mark)(const CMPIBroker* mb, CMPIStatus* rc);
    CMPIStatus (*release)(const CMPIBroker* mb, const CMPIGcStat* gc);

    void* (*cmpiMalloc)(const CMPIBroker* mb, size_t size);
    void* (*cmpiCalloc)(const CMPIBroker* mb, size_t nElems, size_t sizeElem);
    void* (*cmpiRealloc)(const CMPIBroker* mb, void* ptr, size_t size);
    char* (*cmpiStrDup)(const CMPIBroker* mb, const char* str);
    void (*cmpiFree)(const CMPIBroker* mb, void* ptr);

    /* Early release of objects the provider made itself. */
    void (*freeInstance)(const CMPIBroker* mb, CMPIInstance* inst);
    void (*freeObjectPath)(const CMPIBroker* mb, CMPIObjectPath* obj);
    void (*freeArgs)(const CMPIBroker* mb, CMPIArgs* args);
    void (*freeString)(const CMPIBroker* mb, CMPIString* str);
    void (*freeArray)(const CMPIBroker* mb, CMPIArray* array);
    void (*freeDateTime)(const CMPIBroker* mb, CMPIDateTime* dt);
    void (*freeSelectExp)(const CMPIBroker* mb, CMPISelectExp* se);
};
#endif

/* ========================================================================================= */
/* Encapsulated objects. Each is {hdl, ft}; every table starts with ftVersion, release, clone. */
/* ========================================================================================= */

/* Per-invocation context: named entries such as CMPIInitNameSpace and CMPIInvocationFlags. */
struct _CMPIContext {
    void* hdl;
    CMPIContextFT* ft;
};

struct _CMPIContextFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIContext* ctx);
    CMPIContext* (*clone)(const CMPIContext* ctx, CMPIStatus* rc);
    CMPIData (*getEntry)(const CMPIContext* ctx, const char* name, CMPIStatus* rc);
    CMPIData (*getEntryAt)(const CMPIContext* ctx, CMPICount index, CMPIString** name,
                           CMPIStatus* rc);
    CMPICount (*getEntryCount)(const CMPIContext* ctx, CMPIStatus* rc);
    CMPIStatus (*addEntry)(const CMPIContext* ctx, const char* name, const CMPIValue* value,
                           const CMPIType type);
};

/* Where an MI function delivers what it produces. */
struct _CMPIResult {
    void* hdl;
    CMPIResultFT* ft;
};

struct _CMPIResultFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIResult* rslt);
    CMPIResult* (*clone)(const CMPIResult* rslt, CMPIStatus* rc);
    CMPIStatus (*returnData)(const CMPIResult* rslt, const CMPIValue* value, const CMPIType type);
    CMPIStatus (*returnInstance)(const CMPIResult* rslt, const CMPIInstance* inst);
    CMPIStatus (*returnObjectPath)(const CMPIResult* rslt, const CMPIObjectPath* ref);
    CMPIStatus (*returnDone)(const CMPIResult* rslt);
#ifdef CMPI_VER_200
    CMPIStatus (*returnError)(const CMPIResult* rslt, const CMPIError* er);
#endif
};

#ifdef CMPI_VER_200
/* An extended error in the shape of CIM_Error. */
struct _CMPIError {
    void* hdl;
    CMPIErrorFT* ft;
};

struct _CMPIErrorFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIError* er);
    CMPIError* (*clone)(const CMPIError* er, CMPIStatus* rc);
    CMPIErrorType (*getErrorType)(const CMPIError* er, CMPIStatus* rc);
    CMPIString* (*getOtherErrorType)(const CMPIError* er, CMPIStatus* rc);
    CMPIString* (*getOwningEntity)(const CMPIError* er, CMPIStatus* rc);
    CMPIString* (*getMessageID)(const CMPIError* er, CMPIStatus* rc);
    CMPIString* (*getMessage)(const CMPIError* er, CMPIStatus* rc);
    CMPIErrorSeverity (*getPerceivedSeverity)(const CMPIError* er, CMPIStatus* rc);
    CMPIErrorProbableCause (*getProbableCause)(const CMPIError* er, CMPIStatus* rc);
    CMPIString* (*getProbableCauseDescription)(const CMPIError* er, CMPIStatus* rc);
    CMPIArray* (*getRecommendedActions)(const CMPIError* er, CMPIStatus* rc);
    CMPIString* (*getErrorSource)(const CMPIError* er, CMPIStatus* rc);
    CMPIErrorSrcFormat (*getErrorSourceFormat)(const CMPIError* er, CMPIStatus* rc);
    CMPIString* (*getOtherErrorSourceFormat)(const CMPIError* er, CMPIStatus* rc);
    CMPIrc (*getCIMStatusCode)(const CMPIError* er, CMPIStatus* rc);
    CMPIString* (*getCIMStatusCodeDescription)(const CMPIError* er, CMPIStatus* rc);
    CMPIArray* (*getMessageArguments)(const CMPIError* er, CMPIStatus* rc);
    CMPIStatus (*setErrorType)(CMPIError* er, const CMPIErrorType et);
    CMPIStatus (*setOtherErrorType)(CMPIError* er, const char* ot);
    CMPIStatus (*setProbableCauseDescription)(CMPIError* er, const char* pcd);
    CMPIStatus (*setRecommendedActions)(CMPIError* er, const CMPIArray* ra);
    CMPIStatus (*setErrorSource)(CMPIError* er, const char* es);
    CMPIStatus (*setErrorSourceFormat)(CMPIError* er, const CMPIErrorSrcFormat esf);
    CMPIStatus (*setOtherErrorSourceFormat)(CMPIError* er, const char* oesf);
    CMPIStatus (*setCIMStatusCodeDescription)(CMPIError* er, const char* cd);
    CMPIStatus (*setMessageArguments)(CMPIError* er, CMPIArray* values);
};
#endif

/* A CIM instance: properties by name or index, plus its object path. */
struct _CMPIInstance {
    void* hdl;
    CMPIInstanceFT* ft;
};

struct _CMPIInstanceFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIInstance* inst);
    CMPIInstance* (*clone)(const CMPIInstance* inst, CMPIStatus* rc);
    CMPIData (*getProperty)(const CMPIInstance* inst, const char* name, CMPIStatus* rc);
    CMPIData (*getPropertyAt)(const CMPIInstance* inst, CMPICount index, CMPIString** name,
                              CMPIStatus* rc);
    CMPICount (*getPropertyCount)(const CMPIInstance* inst, CMPIStatus* rc);
    CMPIStatus (*setProperty)(const CMPIInstance* inst, const char* name, const CMPIValue* value,
                              CMPIType type);
    CMPIObjectPath* (*getObjectPath)(const CMPIInstance* inst, CMPIStatus* rc);
    /* Later setProperty calls for names outside propertyList are ignored; keys is unused. */
    CMPIStatus (*setPropertyFilter)(CMPIInstance* inst, const char** propertyList,
                                    const char** keys);
    CMPIStatus (*setObjectPath)(CMPIInstance* inst, const CMPIObjectPath* op);
#ifdef CMPI_VER_200
    CMPIStatus (*setPropertyWithOrigin)(const CMPIInstance* inst, const char* name,
                                        const CMPIValue* value, const CMPIType type,
                                        const char* origin);
#endif
};

/* A class or instance path: host, namespace, class name and key bindings. */
struct _CMPIObjectPath {
    void* hdl;
    CMPIObjectPathFT* ft;
};

struct _CMPIObjectPathFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIObjectPath* op);
    CMPIObjectPath* (*clone)(const CMPIObjectPath* op, CMPIStatus* rc);
    CMPIStatus (*setNameSpace)(CMPIObjectPath* op, const char* ns);
    CMPIString* (*getNameSpace)(const CMPIObjectPath* op, CMPIStatus* rc);
    CMPIStatus (*setHostname)(CMPIObjectPath* op, const char* hn);
    CMPIString* (*getHostname)(const CMPIObjectPath* op, CMPIStatus* rc);
    CMPIStatus (*setClassName)(CMPIObjectPath* op, const char* cn);
    CMPIString* (*getClassName)(const CMPIObjectPath* op, CMPIStatus* rc);
    CMPIStatus (*addKey)(CMPIObjectPath* op, const char* name, const CMPIValue* value,
                         const CMPIType type);
    CMPIData (*getKey)(const CMPIObjectPath* op, const char* name, CMPIStatus* rc);
    CMPIData (*getKeyAt)(const CMPIObjectPath* op, CMPICount index, CMPIString** name,
                         CMPIStatus* rc);
    CMPICount (*getKeyCount)(const CMPIObjectPath* op, CMPIStatus* rc);
    CMPIStatus (*setNameSpaceFromObjectPath)(CMPIObjectPath* op, const CMPIObjectPath* src);
    CMPIStatus (*setHostAndNameSpaceFromObjectPath)(CMPIObjectPath* op, const CMPIObjectPath* src);
    /* Qualifier lookups through the class the path names. */
    CMPIData (*getClassQualifier)(const CMPIObjectPath* op, const char* qName, CMPIStatus* rc);
    CMPIData (*getPropertyQualifier)(const CMPIObjectPath* op, const char* pName, const char* qName,
                                     CMPIStatus* rc);
    CMPIData (*getMethodQualifier)(const CMPIObjectPath* op, const char* methodName,
                                   const char* qName, CMPIStatus* rc);
    CMPIData (*getParameterQualifier)(const CMPIObjectPath* op, const char* mName,
                                      const char* pName, const char* qName, CMPIStatus* rc);
    CMPIString* (*toString)(const CMPIObjectPath* op, CMPIStatus* rc);
};

/* Method arguments by name or index. */
struct _CMPIArgs {
    void* hdl;
    CMPIArgsFT* ft;
};

struct _CMPIArgsFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIArgs* as);
    CMPIArgs* (*clone)(const CMPIArgs* as, CMPIStatus* rc);
    CMPIStatus (*addArg)(const CMPIArgs* as, const char* name, const CMPIValue* value,
                         const CMPIType type);
    CMPIData (*getArg)(const CMPIArgs* as, const char* name, CMPIStatus* rc);
    CMPIData (*getArgAt)(const CMPIArgs* as, CMPICount index, CMPIString** name, CMPIStatus* rc);
    CMPICount (*getArgCount)(const CMPIArgs* as, CMPIStatus* rc);
};

/* A string owned by the broker. */
struct _CMPIString {
    void* hdl;
    CMPIStringFT* ft;
};

struct _CMPIStringFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIString* st);
    CMPIString* (*clone)(const CMPIString* st, CMPIStatus* rc);
    char* (*getCharPtr)(const CMPIString* st, CMPIStatus* rc);
};

/* A fixed-size array whose elements share one type. */
struct _CMPIArray {
    void* hdl;
    CMPIArrayFT* ft;
};

struct _CMPIArrayFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIArray* ar);
    CMPIArray* (*clone)(const CMPIArray* ar, CMPIStatus* rc);
    CMPICount (*getSize)(const CMPIArray* ar, CMPIStatus* rc);
    CMPIType (*getSimpleType)(const CMPIArray* ar, CMPIStatus* rc);
    CMPIData (*getElementAt)(const CMPIArray* ar, CMPICount index, CMPIStatus* rc);
    CMPIStatus (*setElementAt)(CMPIArray* ar, CMPICount index, const CMPIValue* value,
                               CMPIType type);
};

/* A forward-only sequence of results of an up-call. */
struct _CMPIEnumeration {
    void* hdl;
    CMPIEnumerationFT* ft;
};

struct _CMPIEnumerationFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIEnumeration* en);
    CMPIEnumeration* (*clone)(const CMPIEnumeration* en, CMPIStatus* rc);
    CMPIData (*getNext)(const CMPIEnumeration* en, CMPIStatus* rc);
    CMPIBoolean (*hasNext)(const CMPIEnumeration* en, CMPIStatus* rc);
    CMPIArray* (*toArray)(const CMPIEnumeration* en, CMPIStatus* rc);
};

/* A point in time or an interval. */
struct _CMPIDateTime {
    void* hdl;
    CMPIDateTimeFT* ft;
};

struct _CMPIDateTimeFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIDateTime* dt);
    CMPIDateTime* (*clone)(const CMPIDateTime* dt, CMPIStatus* rc);
    CMPIUint64 (*getBinaryFormat)(const CMPIDateTime* dt, CMPIStatus* rc);
    CMPIString* (*getStringFormat)(const CMPIDateTime* dt, CMPIStatus* rc);
    CMPIBoolean (*isInterval)(const CMPIDateTime* dt, CMPIStatus* rc);
};

/* A parsed query or indication filter. */
struct _CMPISelectExp {
    void* hdl;
    CMPISelectExpFT* ft;
};

struct _CMPISelectExpFT {
    int ftVersion;
    CMPIStatus (*release)(CMPISelectExp* se);
    CMPISelectExp* (*clone)(const CMPISelectExp* se, CMPIStatus* rc);
    CMPIBoolean (*evaluate)(const CMPISelectExp* se, const CMPIInstance* inst, CMPIStatus* rc);
    CMPIString* (*getString)(const CMPISelectExp* se, CMPIStatus* rc);
    CMPISelectCond* (*getDOC)(const CMPISelectExp* se, CMPIStatus* rc);
    CMPISelectCond* (*getCOD)(const CMPISelectExp* se, CMPIStatus* rc);
    CMPIBoolean (*evaluateUsingAccessor)(const CMPISelectExp* se, CMPIAccessor* accessor,
                                         void* parm, CMPIStatus* rc);
};

/* A select expression in normal form: a list of sub-conditions. */
struct _CMPISelectCond {
    void* hdl;
    CMPISelectCondFT* ft;
};

struct _CMPISelectCondFT {
    int ftVersion;
    CMPIStatus (*release)(CMPISelectCond* sc);
    CMPISelectCond* (*clone)(const CMPISelectCond* sc, CMPIStatus* rc);
    /* *type receives a CMPISelectCondType when type is not NULL. */
    CMPICount (*getCountAndType)(const CMPISelectCond* sc, int* type, CMPIStatus* rc);
    CMPISubCond* (*getSubCondAt)(const CMPISelectCond* sc, CMPICount index, CMPIStatus* rc);
};

/* One term of a normal form: a list of predicates. */
struct _CMPISubCond {
    void* hdl;
    CMPISubCondFT* ft;
};

struct _CMPISubCondFT {
    int ftVersion;
    CMPIStatus (*release)(CMPISubCond* sc);
    CMPISubCond* (*clone)(const CMPISubCond* sc, CMPIStatus* rc);
    CMPICount (*getCount)(const CMPISubCond* sc, CMPIStatus* rc);
    CMPIPredicate* (*getPredicateAt)(const CMPISubCond* sc, CMPICount index, CMPIStatus* rc);
    CMPIPredicate* (*getPredicate)(const CMPISubCond* sc, const char* name, CMPIStatus* rc);
};

/* One comparison "lhs op rhs". */
struct _CMPIPredicate {
    void* hdl;
    CMPIPredicateFT* ft;
};

struct _CMPIPredicateFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIPredicate* pr);
    CMPIPredicate* (*clone)(const CMPIPredicate* pr, CMPIStatus* rc);
    CMPIStatus (*getData)(const CMPIPredicate* pr, CMPIType* type, CMPIPredOp* op, CMPIString** lhs,
                          CMPIString** rhs);
    CMPIBoolean (*evaluateUsingAccessor)(const CMPIPredicate* pr, CMPIAccessor* accessorFnc,
                                         void* parm, CMPIStatus* rc);
};

/* ========================================================================================= */
/* Providers (MIs). A provider library exports <name>_Create_<Kind>MI(broker, ctx, rc) for    */
/* each kind it implements; the object manager calls the returned table. Every table starts  */
/* with ftVersion, miVersion, miName and cleanup. A cleanup that answers                     */
/* CMPI_RC_DO_NOT_UNLOAD or CMPI_RC_NEVER_UNLOAD keeps the library loaded unless             */
/* terminating is set.                                                                       */
/* ========================================================================================= */

struct _CMPIInstanceMI {
    const void* hdl;
    CMPIInstanceMIFT* ft;
};

struct _CMPIInstanceMIFT {
    int ftVersion;
    int miVersion;
    const char* miName;
    CMPIStatus (*cleanup)(CMPIInstanceMI* mi, const CMPIContext* ctx, CMPIBoolean terminating);
    CMPIStatus (*enumerateInstanceNames)(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                         const CMPIResult* rslt, const CMPIObjectPath* classPath);
    CMPIStatus (*enumerateInstances)(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                     const CMPIResult* rslt, const CMPIObjectPath* classPath,
                                     const char** properties);
    CMPIStatus (*getInstance)(CMPIInstanceMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                              const CMPIObjectPath* instPath, const char** properties);
    CMPIStatus (*createInstance)(CMPIInstanceMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                                 const CMPIObjectPath* classPath, const CMPIInstance* inst);
    CMPIStatus (*modifyInstance)(CMPIInstanceMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                                 const CMPIObjectPath* instPath, const CMPIInstance* modInst,
                                 const char** properties);
    CMPIStatus (*deleteInstance)(CMPIInstanceMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                                 const CMPIObjectPath* instPath);
    CMPIStatus (*execQuery)(CMPIInstanceMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                            const CMPIObjectPath* classPath, const char* query, const char* lang);
};

struct _CMPIAssociationMI {
    void* hdl;
    CMPIAssociationMIFT* ft;
};

struct _CMPIAssociationMIFT {
    int ftVersion;
    int miVersion;
    const char* miName;
    CMPIStatus (*cleanup)(CMPIAssociationMI* mi, const CMPIContext* ctx, CMPIBoolean terminating);
    CMPIStatus (*associators)(CMPIAssociationMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                              const CMPIObjectPath* instPath, const char* assocClass,
                              const char* resultClass, const char* role, const char* resultRole,
                              const char** properties);
    CMPIStatus (*associatorNames)(CMPIAssociationMI* mi, const CMPIContext* ctx,
                                  const CMPIResult* rslt, const CMPIObjectPath* instPath,
                                  const char* assocClass, const char* resultClass, const char* role,
                                  const char* resultRole);
    CMPIStatus (*references)(CMPIAssociationMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                             const CMPIObjectPath* instPath, const char* resultClass,
                             const char* role, const char** properties);
    CMPIStatus (*referenceNames)(CMPIAssociationMI* mi, const CMPIContext* ctx,
                                 const CMPIResult* rslt, const CMPIObjectPath* instPath,
                                 const char* resultClass, const char* role);
};

struct _CMPIMethodMI {
    void* hdl;
    CMPIMethodMIFT* ft;
};

struct _CMPIMethodMIFT {
    int ftVersion;
    int miVersion;
    const char* miName;
    CMPIStatus (*cleanup)(CMPIMethodMI* mi, const CMPIContext* ctx, CMPIBoolean terminating);
    CMPIStatus (*invokeMethod)(CMPIMethodMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                               const CMPIObjectPath* objPath, const char* method,
                               const CMPIArgs* in, CMPIArgs* out);
};

struct _CMPIPropertyMI {
    void* hdl;
    CMPIPropertyMIFT* ft;
};

struct _CMPIPropertyMIFT {
    int ftVersion;
    int miVersion;
    const char* miName;
    CMPIStatus (*cleanup)(CMPIPropertyMI* mi, const CMPIContext* ctx, CMPIBoolean terminating);
    CMPIStatus (*setProperty)(CMPIPropertyMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                              const CMPIObjectPath* instPath, const char* name,
                              const CMPIData data);
    CMPIStatus (*getProperty)(CMPIPropertyMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                              const CMPIObjectPath* instPath, const char* name);
#ifdef CMPI_VER_200
    CMPIStatus (*setPropertyWithOrigin)(CMPIPropertyMI* mi, const CMPIContext* ctx,
                                        const CMPIResult* rslt, CMPIObjectPath* instPath,
                                        const char* name, const CMPIData data, const char* origin);
#endif
};

struct _CMPIIndicationMI {
    void* hdl;
    CMPIIndicationMIFT* ft;
};

struct _CMPIIndicationMIFT {
    int ftVersion;
    int miVersion;
    const char* miName;
    CMPIStatus (*cleanup)(CMPIIndicationMI* mi, const CMPIContext* ctx, CMPIBoolean terminating);
    CMPIStatus (*authorizeFilter)(CMPIIndicationMI* mi, const CMPIContext* ctx,
                                  const CMPISelectExp* filter, const char* className,
                                  const CMPIObjectPath* classPath, const char* owner);
    CMPIStatus (*mustPoll)(CMPIIndicationMI* mi, const CMPIContext* ctx,
                           const CMPISelectExp* filter, const char* className,
                           const CMPIObjectPath* classPath);
    CMPIStatus (*activateFilter)(CMPIIndicationMI* mi, const CMPIContext* ctx,
                                 const CMPISelectExp* filter, const char* className,
                                 const CMPIObjectPath* classPath, CMPIBoolean firstActivation);
    CMPIStatus (*deActivateFilter)(CMPIIndicationMI* mi, const CMPIContext* ctx,
                                   const CMPISelectExp* filter, const char* className,
                                   const CMPIObjectPath* classPath, CMPIBoolean lastActivation);
    CMPIStatus (*enableIndications)(CMPIIndicationMI* mi, const CMPIContext* ctx);
    CMPIStatus (*disableIndications)(CMPIIndicationMI* mi, const CMPIContext* ctx);
};

#ifdef __cplusplus
}
#endif

#endif /* DIAGCORE_CMPI_CMPIFT_H */
