/*
 * Convenience macros of the CMPI 2.0 provider interface: status building and early return, tests
 * on CMPIData, one wrapper per function-table slot (CM* on encapsulated objects and broker
 * factories, CB* for broker up-calls) and the factory stubs that turn a set of prefixed C functions
 * into an exported <name>_Create_<Kind>MI entry point. Every wrapper expands to a single call
 * through the object's function table, so it behaves exactly like that slot.
 */
#ifndef DIAGCORE_CMPI_CMPIMACS_H
#define DIAGCORE_CMPI_CMPIMACS_H

#include "cmpidt.h"
#include "cmpift.h"

/* ---- Status ---------------------------------------------------------------------------- */

/* Leave the current function with {rc, NULL}. */
#define CMReturn(rc)                                                                               \
    {                                                                                              \
        CMPIStatus cmpiReturnStatus_ = {(CMPIrc)(rc), NULL};                                       \
        return cmpiReturnStatus_;                                                                  \
    }

/* Leave the current function with {rc, str}; str is a CMPIString*. */
#define CMReturnWithString(rc, str)                                                                \
    {                                                                                              \
        CMPIStatus cmpiReturnStatus_ = {(CMPIrc)(rc), (str)};                                      \
        return cmpiReturnStatus_;                                                                  \
    }

/* Leave the current function with {rc, message}; the message string is made by broker b. */
#define CMReturnWithChars(b, rc, chars)                                                            \
    {                                                                                              \
        CMPIStatus cmpiReturnStatus_ = {(CMPIrc)(rc), NULL};                                       \
        cmpiReturnStatus_.msg = (b)->eft->newString((b), (chars), NULL);                           \
        return cmpiReturnStatus_;                                                                  \
    }

/* Fill an optional CMPIStatus out-parameter; a NULL st is left alone. */
#define CMSetStatus(st, rcp)                                                                       \
    {                                                                                              \
        if ((st) != NULL) {                                                                        \
            (st)->rc = (CMPIrc)(rcp);                                                              \
            (st)->msg = NULL;                                                                      \
        }                                                                                          \
    }

#define CMSetStatusWithString(st, rcp, string)                                                     \
    {                                                                                              \
        if ((st) != NULL) {                                                                        \
            (st)->rc = (CMPIrc)(rcp);                                                              \
            (st)->msg = (string);                                                                  \
        }                                                                                          \
    }

#define CMSetStatusWithChars(mb, st, rcp, chars)                                                   \
    {                                                                                              \
        if ((st) != NULL) {                                                                        \
            (st)->rc = (CMPIrc)(rcp);                                                              \
            (st)->msg = (mb)->eft->newString((mb), (chars), NULL);                                 \
        }                                                                                          \
    }

/* ---- Tests on objects and data --------------------------------------------------------- */

/* True for a NULL object and for one whose handle is NULL (its first member). */
#define CMIsNullObject(o) ((o) == NULL || *((void**)(o)) == NULL)
#define CMIsNullValue(v) (((v).state) & CMPI_nullValue)
#define CMIsKeyValue(v) (((v).state) & CMPI_keyValue)
#define CMIsArray(v) (((v).type) & CMPI_ARRAY)

/* ---- Life cycle of any encapsulated object --------------------------------------------- */

#define CMClone(o, rc) ((o)->ft->clone((o), (rc)))
#define CMRelease(o) ((o)->ft->release((o)))

/* ---- Broker factories and helpers (CMPIBrokerEncFT) ------------------------------------ */

#define CMNewInstance(b, c, rc) ((b)->eft->newInstance((b), (c), (rc)))
#define CMNewObjectPath(b, n, c, rc) ((b)->eft->newObjectPath((b), (n), (c), (rc)))
#define CMNewString(b, s, rc) ((b)->eft->newString((b), (s), (rc)))
#define CMNewArgs(b, rc) ((b)->eft->newArgs((b), (rc)))
#define CMNewArray(b, c, t, rc) ((b)->eft->newArray((b), (c), (t), (rc)))
#define CMNewDateTime(b, rc) ((b)->eft->newDateTime((b), (rc)))
#define CMNewDateTimeFromBinary(b, d, i, rc) ((b)->eft->newDateTimeFromBinary((b), (d), (i), (rc)))
#define CMNewDateTimeFromChars(b, d, rc) ((b)->eft->newDateTimeFromChars((b), (d), (rc)))
#define CMNewSelectExp(b, q, l, p, rc) ((b)->eft->newSelectExp((b), (q), (l), (p), (rc)))
#define CMClassPathIsA(b, p, pn, rc) ((b)->eft->classPathIsA((b), (p), (pn), (rc)))

#define CDToString(b, o, rc) ((b)->eft->toString((b), (void*)(o), (rc)))
#define CDIsOfType(b, o, t, rc) ((b)->eft->isOfType((b), (void*)(o), (t), (rc)))
#define CDGetType(b, o, rc) ((b)->eft->getType((b), (void*)(o), (rc)))

/* Message inserts for CMGetMessage/CMGetMessage2: each CMFmt* yields a (type, value) pair and
   CMFmtArgsN(...) prefixes the count, e.g.
   CMGetMessage(b, "id", "Disk $0 failed $1 times", NULL, CMFmtArgs2(CMFmtChars(d), CMFmtSint(n)))
 */
#define CMFmtSint(v) CMPI_sint32, ((long int)(v))
#define CMFmtUint(v) CMPI_uint32, ((unsigned long int)(v))
#define CMFmtSint64(v) CMPI_sint64, ((long long int)(v))
#define CMFmtUint64(v) CMPI_uint64, ((unsigned long long int)(v))
#define CMFmtReal(v) CMPI_real64, ((double)(v))
#define CMFmtBoolean(v) CMPI_boolean, ((int)(v))
#define CMFmtChars(v) CMPI_chars, ((const char*)(v))
#define CMFmtString(v) CMPI_string, ((CMPIString*)(v))

#define CMFmtArgs0() 0
#define CMFmtArgs1(v1) 1, v1
#define CMFmtArgs2(v1, v2) 2, v1, v2
#define CMFmtArgs3(v1, v2, v3) 3, v1, v2, v3
#define CMFmtArgs4(v1, v2, v3, v4) 4, v1, v2, v3, v4
#define CMFmtArgs5(v1, v2, v3, v4, v5) 5, v1, v2, v3, v4, v5
#define CMFmtArgs6(v1, v2, v3, v4, v5, v6) 6, v1, v2, v3, v4, v5, v6
#define CMFmtArgs7(v1, v2, v3, v4, v5, v6, v7) 7, v1, v2, v3, v4, v5, v6, v7
#define CMFmtArgs8(v1, v2, v3, v4, v5, v6, v7, v8) 8, v1, v2, v3, v4, v5, v6, v7, v8
#define CMFmtArgs9(v1, v2, v3, v4, v5, v6, v7, v8, v9) 9, v1, v2, v3, v4, v5, v6, v7, v8, v9
#define CMFmtArgs10(v1, v2, v3, v4, v5, v6, v7, v8, v9, v10)                                       \
    10, v1, v2, v3, v4, v5, v6, v7, v8, v9, v10

#define CMGetMessage(b, id, def, rc, parms) ((b)->eft->getMessage((b), (id), (def), (rc), parms))
#define CMLogMessage(b, severity, id, text, string)                                                \
    ((b)->eft->logMessage((b), (severity), (id), (text), (string)))
#define CMTraceMessage(b, level, component, text, string)                                          \
    ((b)->eft->trace((b), (level), (component), (text), (string)))

#ifdef CMPI_VER_200
#define CMNewCMPIError(b, owner, msgID, msg, sev, pc, cimStatusCode, rc)                           \
    ((b)->eft->newCMPIError((b), (owner), (msgID), (msg), (sev), (pc), (cimStatusCode), (rc)))
#define CMOpenMessageFile(b, mf, mfh) ((b)->eft->openMessageFile((b), (mf), (mfh)))
#define CMCloseMessageFile(b, mfh) ((b)->eft->closeMessageFile((b), (mfh)))
#define CMGetMessage2(b, id, mfh, def, rc, parms)                                                  \
    ((b)->eft->getMessage2((b), (id), (mfh), (def), (rc), parms))
#endif

/* ---- CMPIInstance ---------------------------------------------------------------------- */

#define CMGetProperty(i, n, rc) ((i)->ft->getProperty((i), (n), (rc)))
#define CMGetPropertyAt(i, num, s, rc) ((i)->ft->getPropertyAt((i), (num), (s), (rc)))
#define CMSetProperty(i, n, v, t) ((i)->ft->setProperty((i), (n), (CMPIValue*)(v), (t)))
#define CMGetPropertyCount(i, rc) ((i)->ft->getPropertyCount((i), (rc)))
#define CMGetObjectPath(i, rc) ((i)->ft->getObjectPath((i), (rc)))
#define CMSetObjectPath(i, obj) ((i)->ft->setObjectPath((i), (obj)))
#define CMSetPropertyFilter(i, pl, k) ((i)->ft->setPropertyFilter((i), (pl), (k)))
#ifdef CMPI_VER_200
#define CMSetPropertyWithOrigin(i, n, v, t, o)                                                     \
    ((i)->ft->setPropertyWithOrigin((i), (n), (CMPIValue*)(v), (t), (o)))
#endif

/* ---- CMPIObjectPath -------------------------------------------------------------------- */

#define CMSetHostname(p, n) ((p)->ft->setHostname((p), (n)))
#define CMGetHostname(p, rc) ((p)->ft->getHostname((p), (rc)))
#define CMSetNameSpace(p, n) ((p)->ft->setNameSpace((p), (n)))
#define CMGetNameSpace(p, rc) ((p)->ft->getNameSpace((p), (rc)))
#define CMSetClassName(p, n) ((p)->ft->setClassName((p), (n)))
#define CMGetClassName(p, rc) ((p)->ft->getClassName((p), (rc)))
#define CMAddKey(p, n, v, t) ((p)->ft->addKey((p), (n), (CMPIValue*)(v), (t)))
#define CMGetKey(p, n, rc) ((p)->ft->getKey((p), (n), (rc)))
#define CMGetKeyAt(p, i, n, rc) ((p)->ft->getKeyAt((p), (i), (n), (rc)))
#define CMGetKeyCount(p, rc) ((p)->ft->getKeyCount((p), (rc)))
#define CMSetNameSpaceFromObjectPath(p, s) ((p)->ft->setNameSpaceFromObjectPath((p), (s)))
#define CMSetHostAndNameSpaceFromObjectPath(p, s)                                                  \
    ((p)->ft->setHostAndNameSpaceFromObjectPath((p), (s)))
#define CMGetClassQualifier(op, qName, rc) ((op)->ft->getClassQualifier((op), (qName), (rc)))
#define CMGetPropertyQualifier(op, pName, qName, rc)                                               \
    ((op)->ft->getPropertyQualifier((op), (pName), (qName), (rc)))
#define CMGetMethodQualifier(op, methodName, qName, rc)                                            \
    ((op)->ft->getMethodQualifier((op), (methodName), (qName), (rc)))
#define CMGetParameterQualifier(op, mName, pName, qName, rc)                                       \
    ((op)->ft->getParameterQualifier((op), (mName), (pName), (qName), (rc)))
#define CMObjectPathToString(p, rc) ((p)->ft->toString((p), (rc)))

/* ---- CMPIArray ------------------------------------------------------------------------- */

#define CMGetArrayCount(a, rc) ((a)->ft->getSize((a), (rc)))
#define CMGetArrayType(a, rc) ((a)->ft->getSimpleType((a), (rc)))
#define CMGetArrayElementAt(a, n, rc) ((a)->ft->getElementAt((a), (n), (rc)))
#define CMSetArrayElementAt(a, n, v, t) ((a)->ft->setElementAt((a), (n), (CMPIValue*)(v), (t)))

/* ---- CMPIArgs -------------------------------------------------------------------------- */

#define CMAddArg(a, n, v, t) ((a)->ft->addArg((a), (n), (CMPIValue*)(v), (t)))
#define CMGetArg(a, n, rc) ((a)->ft->getArg((a), (n), (rc)))
#define CMGetArgAt(a, p, n, rc) ((a)->ft->getArgAt((a), (p), (n), (rc)))
#define CMGetArgCount(a, rc) ((a)->ft->getArgCount((a), (rc)))

/* ---- CMPIString ------------------------------------------------------------------------ */

/* Reads the handle itself as the character data: a broker's CMPIString keeps its hdl pointing
   at the NUL-terminated text. CMGetCharsPtr goes through the function table instead. */
#define CMGetCharPtr(s) ((char*)(s)->hdl)
#define CMGetCharsPtr(st, rc) ((st)->ft->getCharPtr((st), (rc)))

/* ---- CMPIDateTime ---------------------------------------------------------------------- */

#define CMGetStringFormat(d, rc) ((d)->ft->getStringFormat((d), (rc)))
#define CMGetBinaryFormat(d, rc) ((d)->ft->getBinaryFormat((d), (rc)))
#define CMIsInterval(d, rc) ((d)->ft->isInterval((d), (rc)))

/* ---- CMPIError ------------------------------------------------------------------------- */

#ifdef CMPI_VER_200
#define CMGetErrorType(e, rc) ((e)->ft->getErrorType((e), (rc)))
#define CMGetOtherErrorType(e, rc) ((e)->ft->getOtherErrorType((e), (rc)))
#define CMGetOwningEntity(e, rc) ((e)->ft->getOwningEntity((e), (rc)))
#define CMGetMessageID(e, rc) ((e)->ft->getMessageID((e), (rc)))
#define CMGetErrorMessage(e, rc) ((e)->ft->getMessage((e), (rc)))
#define CMGetPerceivedSeverity(e, rc) ((e)->ft->getPerceivedSeverity((e), (rc)))
#define CMGetProbableCause(e, rc) ((e)->ft->getProbableCause((e), (rc)))
#define CMGetProbableCauseDescription(e, rc) ((e)->ft->getProbableCauseDescription((e), (rc)))
#define CMGetRecommendedActions(e, rc) ((e)->ft->getRecommendedActions((e), (rc)))
#define CMGetErrorSource(e, rc) ((e)->ft->getErrorSource((e), (rc)))
#define CMGetErrorSourceFormat(e, rc) ((e)->ft->getErrorSourceFormat((e), (rc)))
#define CMGetOtherErrorSourceFormat(e, rc) ((e)->ft->getOtherErrorSourceFormat((e), (rc)))
#define CMGetCIMStatusCode(e, rc) ((e)->ft->getCIMStatusCode((e), (rc)))
#define CMGetCIMStatusCodeDescription(e, rc) ((e)->ft->getCIMStatusCodeDescription((e), (rc)))
#define CMGetMessageArguments(e, rc) ((e)->ft->getMessageArguments((e), (rc)))
#define CMSetErrorType(e, et) ((e)->ft->setErrorType((e), (et)))
#define CMSetOtherErrorType(e, oet) ((e)->ft->setOtherErrorType((e), (oet)))
#define CMSetProbableCauseDescription(e, pcd) ((e)->ft->setProbableCauseDescription((e), (pcd)))
#define CMSetRecommendedActions(e, ra) ((e)->ft->setRecommendedActions((e), (ra)))
#define CMSetErrorSource(e, es) ((e)->ft->setErrorSource((e), (es)))
#define CMSetErrorSourceFormat(e, esf) ((e)->ft->setErrorSourceFormat((e), (esf)))
#define CMSetOtherErrorSourceFormat(e, oesf) ((e)->ft->setOtherErrorSourceFormat((e), (oesf)))
#define CMSetCIMStatusCodeDescription(e, cd) ((e)->ft->setCIMStatusCodeDescription((e), (cd)))
#define CMSetMessageArguments(e, ma) ((e)->ft->setMessageArguments((e), (ma)))
#endif

/* ---- CMPIEnumeration ------------------------------------------------------------------- */

#define CMGetNext(n, rc) ((n)->ft->getNext((n), (rc)))
#define CMHasNext(n, rc) ((n)->ft->hasNext((n), (rc)))
#define CMToArray(n, rc) ((n)->ft->toArray((n), (rc)))

/* ---- CMPIResult ------------------------------------------------------------------------ */

#define CMReturnData(r, v, t) ((r)->ft->returnData((r), (CMPIValue*)(v), (t)))
#define CMReturnInstance(r, i) ((r)->ft->returnInstance((r), (i)))
#define CMReturnObjectPath(r, o) ((r)->ft->returnObjectPath((r), (o)))
#define CMReturnDone(r) ((r)->ft->returnDone((r)))
#ifdef CMPI_VER_200
#define CMReturnError(r, e) ((r)->ft->returnError((r), (e)))
#endif

/* ---- CMPIContext ----------------------------------------------------------------------- */

#define CMGetContextEntry(c, n, rc) ((c)->ft->getEntry((c), (n), (rc)))
#define CMGetContextEntryAt(c, p, n, rc) ((c)->ft->getEntryAt((c), (p), (n), (rc)))
#define CMGetContextEntryCount(c, rc) ((c)->ft->getEntryCount((c), (rc)))
#define CMAddContextEntry(c, n, v, t) ((c)->ft->addEntry((c), (n), (CMPIValue*)(v), (t)))

/* ---- Queries: CMPISelectExp, CMPISelectCond, CMPISubCond, CMPIPredicate ---------------- */

#define CMGetSelExpString(s, rc) ((s)->ft->getString((s), (rc)))
#define CMEvaluateSelExp(s, i, r) ((s)->ft->evaluate((s), (i), (r)))
#define CMEvaluateSelExpUsingAccessor(s, i, p, r)                                                  \
    ((s)->ft->evaluateUsingAccessor((s), (i), (p), (r)))
#define CMGetDoc(s, rc) ((s)->ft->getDOC((s), (rc)))
#define CMGetCod(s, rc) ((s)->ft->getCOD((s), (rc)))
#define CMGetSubCondCountAndType(c, t, rc) ((c)->ft->getCountAndType((c), (t), (rc)))
#define CMGetSubCondAt(c, p, rc) ((c)->ft->getSubCondAt((c), (p), (rc)))
#define CMGetPredicateCount(s, rc) ((s)->ft->getCount((s), (rc)))
#define CMGetPredicateAt(s, p, rc) ((s)->ft->getPredicateAt((s), (p), (rc)))
#define CMGetPredicate(s, n, rc) ((s)->ft->getPredicate((s), (n), (rc)))
#define CMGetPredicateData(p, t, o, n, v) ((p)->ft->getData((p), (t), (o), (n), (v)))
#define CMEvaluatePredicateUsingAccessor(p, a, parm, rc)                                           \
    ((p)->ft->evaluateUsingAccessor((p), (a), (parm), (rc)))

/* ---- Broker up-calls (CMPIBrokerFT) ---------------------------------------------------- */

#define CBGetClassification(b) ((b)->bft->brokerCapabilities)
#define CBBrokerVersion(b) ((b)->bft->brokerVersion)
#define CBBrokerName(b) ((b)->bft->brokerName)

#define CBPrepareAttachThread(b, c) ((b)->bft->prepareAttachThread((b), (c)))
#define CBAttachThread(b, c) ((b)->bft->attachThread((b), (c)))
#define CBDetachThread(b, c) ((b)->bft->detachThread((b), (c)))
#define CBDeliverIndication(b, c, n, i) ((b)->bft->deliverIndication((b), (c), (n), (i)))

#define CBEnumInstanceNames(b, c, p, rc) ((b)->bft->enumerateInstanceNames((b), (c), (p), (rc)))
#define CBEnumInstances(b, c, p, pr, rc) ((b)->bft->enumerateInstances((b), (c), (p), (pr), (rc)))
#define CBGetInstance(b, c, p, pr, rc) ((b)->bft->getInstance((b), (c), (p), (pr), (rc)))
#define CBCreateInstance(b, c, p, i, rc) ((b)->bft->createInstance((b), (c), (p), (i), (rc)))
#define CBModifyInstance(b, c, p, i, pr) ((b)->bft->modifyInstance((b), (c), (p), (i), (pr)))
/* Older spelling: replaces every property. */
#define CBSetInstance(b, c, p, i) ((b)->bft->modifyInstance((b), (c), (p), (i), NULL))
#define CBDeleteInstance(b, c, p) ((b)->bft->deleteInstance((b), (c), (p)))
#define CBExecQuery(b, c, p, q, l, rc) ((b)->bft->execQuery((b), (c), (p), (q), (l), (rc)))
#define CBAssociators(b, c, p, acl, rcl, r, rr, pr, rc)                                            \
    ((b)->bft->associators((b), (c), (p), (acl), (rcl), (r), (rr), (pr), (rc)))
#define CBAssociatorNames(b, c, p, acl, rcl, r, rr, rc)                                            \
    ((b)->bft->associatorNames((b), (c), (p), (acl), (rcl), (r), (rr), (rc)))
#define CBReferences(b, c, p, rcl, r, pr, rc)                                                      \
    ((b)->bft->references((b), (c), (p), (rcl), (r), (pr), (rc)))
#define CBReferenceNames(b, c, p, rcl, r, rc)                                                      \
    ((b)->bft->referenceNames((b), (c), (p), (rcl), (r), (rc)))
#define CBInvokeMethod(b, c, p, m, ai, ao, rc)                                                     \
    ((b)->bft->invokeMethod((b), (c), (p), (m), (ai), (ao), (rc)))
#define CBSetProperty(b, c, p, n, v, t)                                                            \
    ((b)->bft->setProperty((b), (c), (p), (n), (CMPIValue*)(v), (t)))
#define CBGetProperty(b, c, p, n, rc) ((b)->bft->getProperty((b), (c), (p), (n), (rc)))

/* ---- MI factory stubs ------------------------------------------------------------------ */

/* The hook argument of a stub when the factory needs no extra initialisation. */
#define CMNoHook

/*
 * Each stub defines the function table of one kind of provider from functions named
 * <pfx><Operation> and the exported factory <pn>_Create_<Kind>MI(brkr, ctx, rc). The factory
 * stores the broker in the variable named by broker (declare it as `static const CMPIBroker*`),
 * answers CMPI_RC_OK in rc, runs hook (which may use brkr, ctx and rc) and returns the MI.
 */

#define CMInstanceMIStub(pfx, pn, broker, hook)                                                    \
    static CMPIInstanceMIFT pn##_InstanceMIFT = {                                                  \
        CMPICurrentVersion,     CMPICurrentVersion,  "instance" #pn,   pfx##Cleanup,               \
        pfx##EnumInstanceNames, pfx##EnumInstances,  pfx##GetInstance, pfx##CreateInstance,        \
        pfx##ModifyInstance,    pfx##DeleteInstance, pfx##ExecQuery,                               \
    };                                                                                             \
    CMPI_EXTERN_C CMPIInstanceMI* pn##_Create_InstanceMI(const CMPIBroker* brkr,                   \
                                                         const CMPIContext* ctx, CMPIStatus* rc) { \
        static CMPIInstanceMI mi = {NULL, &pn##_InstanceMIFT};                                     \
        (void)ctx;                                                                                 \
        if (rc != NULL) {                                                                          \
            rc->rc = CMPI_RC_OK;                                                                   \
            rc->msg = NULL;                                                                        \
        }                                                                                          \
        broker = brkr;                                                                             \
        hook;                                                                                      \
        return &mi;                                                                                \
    }

#define CMAssociationMIStub(pfx, pn, broker, hook)                                                 \
    static CMPIAssociationMIFT pn##_AssociationMIFT = {                                            \
        CMPICurrentVersion, CMPICurrentVersion,   "association" #pn, pfx##AssociationCleanup,      \
        pfx##Associators,   pfx##AssociatorNames, pfx##References,   pfx##ReferenceNames,          \
    };                                                                                             \
    CMPI_EXTERN_C CMPIAssociationMI* pn##_Create_AssociationMI(                                    \
        const CMPIBroker* brkr, const CMPIContext* ctx, CMPIStatus* rc) {                          \
        static CMPIAssociationMI mi = {NULL, &pn##_AssociationMIFT};                               \
        (void)ctx;                                                                                 \
        if (rc != NULL) {                                                                          \
            rc->rc = CMPI_RC_OK;                                                                   \
            rc->msg = NULL;                                                                        \
        }                                                                                          \
        broker = brkr;                                                                             \
        hook;                                                                                      \
        return &mi;                                                                                \
    }

#define CMMethodMIStub(pfx, pn, broker, hook)                                                      \
    static CMPIMethodMIFT pn##_MethodMIFT =                                                        \
        {                                                                                          \
            CMPICurrentVersion, CMPICurrentVersion, "method" #pn,                                  \
            pfx##MethodCleanup, pfx##InvokeMethod,                                                 \
    };                                                                                             \
    CMPI_EXTERN_C CMPIMethodMI* pn##_Create_MethodMI(const CMPIBroker* brkr,                       \
                                                     const CMPIContext* ctx, CMPIStatus* rc) {     \
        static CMPIMethodMI mi = {NULL, &pn##_MethodMIFT};                                         \
        (void)ctx;                                                                                 \
        if (rc != NULL) {                                                                          \
            rc->rc = CMPI_RC_OK;                                                                   \
            rc->msg = NULL;                                                                        \
        }                                                                                          \
        broker = brkr;                                                                             \
        hook;                                                                                      \
        return &mi;                                                                                \
    }

/* The property stub leaves setPropertyWithOrigin empty, as stub-built providers never had it. */
#define CMPropertyMIStub(pfx, pn, broker, hook)                                                    \
    static CMPIPropertyMIFT pn##_PropertyMIFT = {                                                  \
        CMPICurrentVersion, CMPICurrentVersion, "property" #pn, pfx##PropertyCleanup,              \
        pfx##SetProperty,   pfx##GetProperty,   NULL,                                              \
    };                                                                                             \
    CMPI_EXTERN_C CMPIPropertyMI* pn##_Create_PropertyMI(const CMPIBroker* brkr,                   \
                                                         const CMPIContext* ctx, CMPIStatus* rc) { \
        static CMPIPropertyMI mi = {NULL, &pn##_PropertyMIFT};                                     \
        (void)ctx;                                                                                 \
        if (rc != NULL) {                                                                          \
            rc->rc = CMPI_RC_OK;                                                                   \
            rc->msg = NULL;                                                                        \
        }                                                                                          \
        broker = brkr;                                                                             \
        hook;                                                                                      \
        return &mi;                                                                                \
    }

#define CMIndicationMIStub(pfx, pn, broker, hook)                                                  \
    static CMPIIndicationMIFT pn##_IndicationMIFT = {                                              \
        CMPICurrentVersion,      CMPICurrentVersion,    "Indication" #pn,                          \
        pfx##IndicationCleanup,  pfx##AuthorizeFilter,  pfx##MustPoll,                             \
        pfx##ActivateFilter,     pfx##DeActivateFilter, pfx##EnableIndications,                    \
        pfx##DisableIndications,                                                                   \
    };                                                                                             \
    CMPI_EXTERN_C CMPIIndicationMI* pn##_Create_IndicationMI(                                      \
        const CMPIBroker* brkr, const CMPIContext* ctx, CMPIStatus* rc) {                          \
        static CMPIIndicationMI mi = {NULL, &pn##_IndicationMIFT};                                 \
        (void)ctx;                                                                                 \
        if (rc != NULL) {                                                                          \
            rc->rc = CMPI_RC_OK;                                                                   \
            rc->msg = NULL;                                                                        \
        }                                                                                          \
        broker = brkr;                                                                             \
        hook;                                                                                      \
        return &mi;                                                                                \
    }

#endif /* DIAGCORE_CMPI_CMPIMACS_H */
