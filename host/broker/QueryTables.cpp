#include "host/broker/QueryTables.h"

#include "host/broker/CmpiCall.h"

namespace diaghost {

namespace {

// Null objects are a misuse of the interface; anything else asks for what the host lacks.
CMPIrc answer(const void* object) {
    return object ? CMPI_RC_ERR_NOT_SUPPORTED : CMPI_RC_ERR_INVALID_HANDLE;
}

template <class T>
CMPIStatus releaseAny(T* object) {
    return CmpiCall::status(answer(object));
}

template <class T>
T* cloneAny(const T* object, CMPIStatus* rc) {
    CmpiCall::set(rc, answer(object));
    return nullptr;
}

CMPIBoolean selectExpEvaluate(const CMPISelectExp* se, const CMPIInstance*, CMPIStatus* rc) {
    CmpiCall::set(rc, answer(se));
    return 0;
}

CMPIString* selectExpGetString(const CMPISelectExp* se, CMPIStatus* rc) {
    CmpiCall::set(rc, answer(se));
    return nullptr;
}

CMPISelectCond* selectExpGetCond(const CMPISelectExp* se, CMPIStatus* rc) {
    CmpiCall::set(rc, answer(se));
    return nullptr;
}

CMPIBoolean selectExpEvaluateUsingAccessor(const CMPISelectExp* se, CMPIAccessor*, void*,
                                           CMPIStatus* rc) {
    CmpiCall::set(rc, answer(se));
    return 0;
}

CMPICount selectCondGetCountAndType(const CMPISelectCond* sc, int* type, CMPIStatus* rc) {
    if (type)
        *type = 0;
    CmpiCall::set(rc, answer(sc));
    return 0;
}

CMPISubCond* selectCondGetSubCondAt(const CMPISelectCond* sc, CMPICount, CMPIStatus* rc) {
    CmpiCall::set(rc, answer(sc));
    return nullptr;
}

CMPICount subCondGetCount(const CMPISubCond* sc, CMPIStatus* rc) {
    CmpiCall::set(rc, answer(sc));
    return 0;
}

CMPIPredicate* subCondGetPredicateAt(const CMPISubCond* sc, CMPICount, CMPIStatus* rc) {
    CmpiCall::set(rc, answer(sc));
    return nullptr;
}

CMPIPredicate* subCondGetPredicate(const CMPISubCond* sc, const char*, CMPIStatus* rc) {
    CmpiCall::set(rc, answer(sc));
    return nullptr;
}

CMPIStatus predicateGetData(const CMPIPredicate* pr, CMPIType* type, CMPIPredOp* op,
                            CMPIString** lhs, CMPIString** rhs) {
    if (type)
        *type = CMPI_null;
    if (op)
        *op = CMPI_PredOp_Equals;
    if (lhs)
        *lhs = nullptr;
    if (rhs)
        *rhs = nullptr;
    return CmpiCall::status(answer(pr));
}

CMPIBoolean predicateEvaluateUsingAccessor(const CMPIPredicate* pr, CMPIAccessor*, void*,
                                           CMPIStatus* rc) {
    CmpiCall::set(rc, answer(pr));
    return 0;
}

CMPISelectExpFT selectExpTable = {CMPIVersion200,          releaseAny<CMPISelectExp>,
                                  cloneAny<CMPISelectExp>, selectExpEvaluate,
                                  selectExpGetString,      selectExpGetCond,
                                  selectExpGetCond,        selectExpEvaluateUsingAccessor};

CMPISelectCondFT selectCondTable = {CMPIVersion200, releaseAny<CMPISelectCond>,
                                    cloneAny<CMPISelectCond>, selectCondGetCountAndType,
                                    selectCondGetSubCondAt};

CMPISubCondFT subCondTable = {CMPIVersion200,  releaseAny<CMPISubCond>, cloneAny<CMPISubCond>,
                              subCondGetCount, subCondGetPredicateAt,   subCondGetPredicate};

CMPIPredicateFT predicateTable = {CMPIVersion200, releaseAny<CMPIPredicate>,
                                  cloneAny<CMPIPredicate>, predicateGetData,
                                  predicateEvaluateUsingAccessor};

} // namespace

CMPISelectExpFT* QueryTables::selectExp() {
    return &selectExpTable;
}
CMPISelectCondFT* QueryTables::selectCond() {
    return &selectCondTable;
}
CMPISubCondFT* QueryTables::subCond() {
    return &subCondTable;
}
CMPIPredicateFT* QueryTables::predicate() {
    return &predicateTable;
}

} // namespace diaghost
