// The CMPI functions of a provider library with the profile layer (DIAGCORE_PROFILE_PROVIDER):
// each MI function first asks this module's ProfileModule whether the call is the layer's, and
// otherwise calls the core's function of the same operation through the core's MI for the
// library. The layer answers only once the core's start-up has run, so that the services it
// refers to are there. No function lets an exception out.
#ifndef DIAGPROFILE_PROFILEPROVIDERFUNCTIONS_H
#define DIAGPROFILE_PROFILEPROVIDERFUNCTIONS_H

#include "entry/DiagProviderFunctions.h"
#include "profile/EditingResult.h"
#include "profile/ProfileModule.h"

#include <cmpift.h>

#include <atomic>

namespace NQORVA20::profile {

template <class Provider>
class ProfileProviderFunctions {
    using Core = DiagProviderFunctions<Provider>;

public:
    static CMPIInstanceMI* createInstanceMI(const CMPIBroker* broker, CMPIStatus* rc) noexcept {
        CMPIInstanceMI* core = Core::createInstanceMI(broker, rc);
        coreInstance_.store(core);
        return core != nullptr && attach(broker, rc) ? &instanceMI_ : nullptr;
    }
    static CMPIMethodMI* createMethodMI(const CMPIBroker* broker, CMPIStatus* rc) noexcept {
        CMPIMethodMI* core = Core::createMethodMI(broker, rc);
        coreMethod_.store(core);
        return core != nullptr && attach(broker, rc) ? &methodMI_ : nullptr;
    }
    static CMPIAssociationMI* createAssociationMI(const CMPIBroker* broker,
                                                  CMPIStatus* rc) noexcept {
        CMPIAssociationMI* core = Core::createAssociationMI(broker, rc);
        coreAssociation_.store(core);
        return core != nullptr && attach(broker, rc) ? &associationMI_ : nullptr;
    }

private:
    static CMPIStatus status(CMPIrc rc) noexcept {
        CMPIStatus s = {rc, nullptr};
        return s;
    }
    static bool attach(const CMPIBroker* broker, CMPIStatus* rc) noexcept {
        broker_.store(broker);
        // The core's instance MI runs the start-up for the layer's own calls, whichever MI the
        // object manager asked for first.
        if (coreInstance_.load() == nullptr)
            coreInstance_.store(Core::createInstanceMI(broker, nullptr));
        const bool ready = ProfileModule::current().configure(Provider::profileClasses());
        if (!ready && rc != nullptr)
            *rc = status(CMPI_RC_ERR_FAILED);
        return ready;
    }
    static const CMPIBroker* broker() noexcept { return broker_.load(); }
    static ProfileModule& module() noexcept { return ProfileModule::current(); }

    // Runs the core's start-up for a call of the layer: an enumeration of the call's class by
    // the core, into no result, which does nothing else once the start-up has run.
    static CMPIStatus started(const CMPIContext* ctx, const CMPIObjectPath* op) noexcept {
        if (startedOnce_.load())
            return status(CMPI_RC_OK);
        CMPIInstanceMI* core = coreInstance_.load();
        if (core == nullptr)
            return status(CMPI_RC_ERR_FAILED);
        CMPIStatus s = core->ft->enumerateInstanceNames(core, ctx, nullptr, op);
        if (s.rc == CMPI_RC_OK)
            startedOnce_.store(true);
        return s;
    }

    template <class Answer>
    static CMPIStatus layer(const CMPIContext* ctx, const CMPIObjectPath* op,
                            Answer answer) noexcept {
        CMPIStatus s = started(ctx, op);
        return s.rc != CMPI_RC_OK ? s : answer();
    }

    static void completeLog(CMPIInstance* log) noexcept { module().completeLog(log); }
    static const CMPIResult* either(const EditingResult& edited, const CMPIResult* rslt) noexcept {
        return edited.result() != nullptr ? edited.result() : rslt;
    }

    static CMPIStatus cleanup(CMPIInstanceMI*, const CMPIContext* ctx, CMPIBoolean t) noexcept {
        if (t)
            module().shutdown();
        CMPIInstanceMI* core = coreInstance_.load();
        return core->ft->cleanup(core, ctx, t);
    }
    static CMPIStatus enumInstanceNames(CMPIInstanceMI*, const CMPIContext* ctx,
                                        const CMPIResult* rslt, const CMPIObjectPath* op) noexcept {
        if (module().serves(op))
            return layer(ctx, op, [&] { return module().enumerate(broker(), rslt, op, true); });
        CMPIInstanceMI* core = coreInstance_.load();
        return core->ft->enumerateInstanceNames(core, ctx, rslt, op);
    }
    static CMPIStatus enumInstances(CMPIInstanceMI*, const CMPIContext* ctx, const CMPIResult* rslt,
                                    const CMPIObjectPath* op, const char** props) noexcept {
        if (module().serves(op))
            return layer(ctx, op, [&] { return module().enumerate(broker(), rslt, op, false); });
        CMPIInstanceMI* core = coreInstance_.load();
        if (module().completesLog(op)) {
            EditingResult completed(rslt, completeLog);
            return core->ft->enumerateInstances(core, ctx, either(completed, rslt), op, props);
        }
        return core->ft->enumerateInstances(core, ctx, rslt, op, props);
    }
    static CMPIStatus getInstance(CMPIInstanceMI*, const CMPIContext* ctx, const CMPIResult* rslt,
                                  const CMPIObjectPath* op, const char** props) noexcept {
        if (module().serves(op))
            return layer(ctx, op, [&] { return module().get(broker(), rslt, op); });
        CMPIInstanceMI* core = coreInstance_.load();
        if (module().completesLog(op)) {
            EditingResult completed(rslt, completeLog);
            return core->ft->getInstance(core, ctx, either(completed, rslt), op, props);
        }
        return core->ft->getInstance(core, ctx, rslt, op, props);
    }
    static CMPIStatus createInstance(CMPIInstanceMI*, const CMPIContext* ctx,
                                     const CMPIResult* rslt, const CMPIObjectPath* op,
                                     const CMPIInstance* inst) noexcept {
        CMPIInstanceMI* core = coreInstance_.load();
        return core->ft->createInstance(core, ctx, rslt, op, inst);
    }
    static CMPIStatus modifyInstance(CMPIInstanceMI*, const CMPIContext* ctx,
                                     const CMPIResult* rslt, const CMPIObjectPath* op,
                                     const CMPIInstance* inst, const char** props) noexcept {
        CMPIInstanceMI* core = coreInstance_.load();
        return core->ft->modifyInstance(core, ctx, rslt, op, inst, props);
    }
    static CMPIStatus deleteInstance(CMPIInstanceMI*, const CMPIContext* ctx,
                                     const CMPIResult* rslt, const CMPIObjectPath* op) noexcept {
        CMPIInstanceMI* core = coreInstance_.load();
        return core->ft->deleteInstance(core, ctx, rslt, op);
    }
    static CMPIStatus execQuery(CMPIInstanceMI*, const CMPIContext* ctx, const CMPIResult* rslt,
                                const CMPIObjectPath* op, const char* query,
                                const char* lang) noexcept {
        CMPIInstanceMI* core = coreInstance_.load();
        return core->ft->execQuery(core, ctx, rslt, op, query, lang);
    }

    static CMPIStatus methodCleanup(CMPIMethodMI*, const CMPIContext* ctx, CMPIBoolean t) noexcept {
        if (t)
            module().shutdown();
        CMPIMethodMI* core = coreMethod_.load();
        return core->ft->cleanup(core, ctx, t);
    }
    static CMPIStatus invokeMethod(CMPIMethodMI*, const CMPIContext* ctx, const CMPIResult* rslt,
                                   const CMPIObjectPath* op, const char* method, const CMPIArgs* in,
                                   CMPIArgs* out) noexcept {
        if (module().handlesMethod(op, method))
            return layer(ctx, op,
                         [&] { return module().invoke(broker(), rslt, op, method, in, out); });
        CMPIMethodMI* core = coreMethod_.load();
        return core->ft->invokeMethod(core, ctx, rslt, op, method, in, out);
    }

    static CMPIStatus associationCleanup(CMPIAssociationMI*, const CMPIContext* ctx,
                                         CMPIBoolean t) noexcept {
        if (t)
            module().shutdown();
        CMPIAssociationMI* core = coreAssociation_.load();
        return core->ft->cleanup(core, ctx, t);
    }
    // The layer's associations first, then the core's, which ends the result. Where the core
    // serves no such operation (References and ReferenceNames), the layer's answer is the answer.
    template <class Core>
    static CMPIStatus both(const CMPIContext* ctx, const CMPIResult* rslt, const CMPIObjectPath* op,
                           ProfileModule::Walk walk, Core core) noexcept {
        CMPIStatus s = layer(ctx, op, [&] { return module().associations(broker(), rslt, walk); });
        if (s.rc != CMPI_RC_OK)
            return s;
        s = core();
        if (s.rc == CMPI_RC_ERR_NOT_SUPPORTED && walk.references) {
            if (rslt != nullptr && rslt->ft != nullptr)
                rslt->ft->returnDone(rslt);
            return status(CMPI_RC_OK);
        }
        return s;
    }
    static CMPIStatus associators(CMPIAssociationMI*, const CMPIContext* ctx,
                                  const CMPIResult* rslt, const CMPIObjectPath* op,
                                  const char* assocClass, const char* resultClass, const char* role,
                                  const char* resultRole, const char** props) noexcept {
        ProfileModule::Walk walk{op, assocClass, resultClass, role, resultRole, false, false};
        return both(ctx, rslt, op, walk, [&] {
            CMPIAssociationMI* core = coreAssociation_.load();
            return core->ft->associators(core, ctx, rslt, op, assocClass, resultClass, role,
                                         resultRole, props);
        });
    }
    static CMPIStatus associatorNames(CMPIAssociationMI*, const CMPIContext* ctx,
                                      const CMPIResult* rslt, const CMPIObjectPath* op,
                                      const char* assocClass, const char* resultClass,
                                      const char* role, const char* resultRole) noexcept {
        ProfileModule::Walk walk{op, assocClass, resultClass, role, resultRole, true, false};
        return both(ctx, rslt, op, walk, [&] {
            CMPIAssociationMI* core = coreAssociation_.load();
            return core->ft->associatorNames(core, ctx, rslt, op, assocClass, resultClass, role,
                                             resultRole);
        });
    }
    static CMPIStatus references(CMPIAssociationMI*, const CMPIContext* ctx, const CMPIResult* rslt,
                                 const CMPIObjectPath* op, const char* resultClass,
                                 const char* role, const char** props) noexcept {
        ProfileModule::Walk walk{op, resultClass, nullptr, role, nullptr, false, true};
        return both(ctx, rslt, op, walk, [&] {
            CMPIAssociationMI* core = coreAssociation_.load();
            return core->ft->references(core, ctx, rslt, op, resultClass, role, props);
        });
    }
    static CMPIStatus referenceNames(CMPIAssociationMI*, const CMPIContext* ctx,
                                     const CMPIResult* rslt, const CMPIObjectPath* op,
                                     const char* resultClass, const char* role) noexcept {
        ProfileModule::Walk walk{op, resultClass, nullptr, role, nullptr, true, true};
        return both(ctx, rslt, op, walk, [&] {
            CMPIAssociationMI* core = coreAssociation_.load();
            return core->ft->referenceNames(core, ctx, rslt, op, resultClass, role);
        });
    }

    static inline std::atomic<const CMPIBroker*> broker_{nullptr};
    static inline std::atomic<bool> startedOnce_{false};
    static inline std::atomic<CMPIInstanceMI*> coreInstance_{nullptr};
    static inline std::atomic<CMPIMethodMI*> coreMethod_{nullptr};
    static inline std::atomic<CMPIAssociationMI*> coreAssociation_{nullptr};

    static inline CMPIInstanceMIFT instanceFT_ = {CMPICurrentVersion,
                                                  CMPICurrentVersion,
                                                  Provider::instanceName,
                                                  cleanup,
                                                  enumInstanceNames,
                                                  enumInstances,
                                                  getInstance,
                                                  createInstance,
                                                  modifyInstance,
                                                  deleteInstance,
                                                  execQuery};
    static inline CMPIMethodMIFT methodFT_ = {CMPICurrentVersion, CMPICurrentVersion,
                                              Provider::methodName, methodCleanup, invokeMethod};
    static inline CMPIAssociationMIFT associationFT_ = {
        CMPICurrentVersion, CMPICurrentVersion, Provider::associationName,
        associationCleanup, associators,        associatorNames,
        references,         referenceNames};

    static inline CMPIInstanceMI instanceMI_ = {nullptr, &instanceFT_};
    static inline CMPIMethodMI methodMI_ = {nullptr, &methodFT_};
    static inline CMPIAssociationMI associationMI_ = {nullptr, &associationFT_};
};

} // namespace NQORVA20::profile

#endif
