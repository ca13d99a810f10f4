#include "entry/AssociationLookup.h"

#include "common/CmpiBoundary.h"
#include "common/CoreLog.h"
#include "common/ProviderScope.h"
#include "entry/ResultCopy.h"
#include "instance/CMPIUtil.h"
#include "instance/InstanceRegistry.h"

#include <cmpift.h>

#include <vector>

namespace NQORVA20 {

void ReturnInstance(const CMPIResult* result, CMPIInstance* association) {
    ReturnInstanceCopy(result, association);
}

void ReturnObjectPath(const CMPIResult* result, CMPIInstance* association) {
    CmpiBoundary::returnPath(result, association->ft->getObjectPath(association, nullptr));
}

bool IsRefInstanceMatch(const CMPIBroker* broker, CMPIObjectPath* reference,
                        std::string wantedPathText) {
    const std::string referenceText = CMPIUtil::GetObjectPathString(reference);
    coreLog(broker, LogDebug, "$$$$ IsRefInstanceMatch");
    coreLog(broker, LogDebug, referenceText);
    coreLog(broker, LogDebug, wantedPathText);
    return referenceText == wantedPathText;
}

bool IsRefClassMatch(const CMPIBroker* broker, CMPIObjectPath* reference, std::string wantedClass) {
    if (!CmpiBoundary::brokerUsable(broker))
        return false;
    return broker->eft->classPathIsA(broker, reference, wantedClass.c_str(), nullptr) != 0;
}

bool HasReferenceTo(const CMPIBroker* broker, CMPIInstance* association, std::string wanted,
                    const char* propertyName, ReferenceMatch match) {
    auto isReference = [](const CMPIData& d) {
        return d.type == CMPI_ref && !(d.state & CMPI_nullValue) && d.value.ref != nullptr;
    };
    if (propertyName != nullptr) {
        CMPIData data = association->ft->getProperty(association, propertyName, nullptr);
        return isReference(data) && match(broker, data.value.ref, wanted);
    }
    const CMPICount count = association->ft->getPropertyCount(association, nullptr);
    for (CMPICount i = 0; i < count; ++i) {
        CMPIData data = association->ft->getPropertyAt(association, i, nullptr, nullptr);
        if (isReference(data) && match(broker, data.value.ref, wanted))
            return true;
    }
    return false;
}

namespace {

bool HasScalarReference(CMPIInstance* instance) {
    const CMPICount count = instance->ft->getPropertyCount(instance, nullptr);
    for (CMPICount i = 0; i < count; ++i) {
        CMPIData data = instance->ft->getPropertyAt(instance, i, nullptr, nullptr);
        if (data.type == CMPI_ref)
            return true;
    }
    return false;
}

void AssociationsOfClass(const CMPIBroker* broker, const CMPIResult* result,
                         const std::string& sourceText, const std::string& assocClass,
                         bool onlyWithReferences, const char* resultClass, const char* role,
                         const char* resultRole, ReturnFunction returnFn) {
    std::vector<CMPIInstance*> associations;
    InstanceRegistry::Singleton()->GetCMPIInstances(broker, assocClass, associations);
    if (associations.empty() || (onlyWithReferences && !HasScalarReference(associations.front())))
        return;
    for (CMPIInstance* association : associations) {
        if (!HasReferenceTo(broker, association, sourceText, role, IsRefInstanceMatch))
            continue;
        if (resultClass == nullptr ||
            HasReferenceTo(broker, association, resultClass, resultRole, IsRefClassMatch))
            returnFn(result, association);
    }
}

} // namespace

void AssociatorsImpl(const CMPIBroker* broker, const CMPIResult* result,
                     const CMPIObjectPath* source, const char* assocClass, const char* resultClass,
                     const char* role, const char* resultRole, ReturnFunction returnFn) {
    const std::string sourceText = CMPIUtil::GetObjectPathString(source);
    if (assocClass != nullptr) {
        AssociationsOfClass(broker, result, sourceText, assocClass, false, resultClass, role,
                            resultRole, returnFn);
    } else {
        // No class named (some object managers pass none when the client gave none): every
        // association class this provider library filed, one class after another.
        for (const std::string& classKey :
             InstanceRegistry::Singleton()->ClassKeys(ProviderScope::current()))
            AssociationsOfClass(broker, result, sourceText, classKey, true, resultClass, role,
                                resultRole, returnFn);
    }
    CmpiBoundary::returnDone(result);
}

} // namespace NQORVA20
