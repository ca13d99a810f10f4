// The CMPI functions of a provider library built on the core, written once for every library:
// DIAGCORE_PROVIDER (entry/DiagProvider.h) instantiates DiagProviderFunctions for its library and
// exports the three MI factories over it. Every MI function forwards its call unchanged to the
// core's DiagServiceProviderCommon* function of the same operation; the operations that read
// what the start-up publishes run it first (ProviderStartup). No function lets an exception out,
// and nothing runs while the library loads: the start-up's state is made by the first factory
// call, which fails (null, CMPI_RC_ERR_FAILED) only when that state cannot be made.
#ifndef DIAGCORE_ENTRY_DIAGPROVIDERFUNCTIONS_H
#define DIAGCORE_ENTRY_DIAGPROVIDERFUNCTIONS_H

#include "common/LogMirror.h"
#include "entry/DiagServiceProviderCommon.h"
#include "entry/ProviderStartup.h"

#include <cmpift.h>

#include <atomic>

namespace NQORVA20 {

// Provider names one library through static members: instanceName, methodName and
// associationName (the MI names of its function tables) and startup(), which answers its
// ProviderStartup::Function. Give it internal linkage, as DIAGCORE_PROVIDER does: the functions'
// state then stays the library's own even where its symbols are not hidden.
template <class Provider>
class DiagProviderFunctions {
public:
    static CMPIInstanceMI* createInstanceMI(const CMPIBroker* broker, CMPIStatus* rc) noexcept {
        return attach(broker, rc) ? &instanceMI_ : nullptr;
    }
    static CMPIMethodMI* createMethodMI(const CMPIBroker* broker, CMPIStatus* rc) noexcept {
        return attach(broker, rc) ? &methodMI_ : nullptr;
    }
    static CMPIAssociationMI* createAssociationMI(const CMPIBroker* broker,
                                                  CMPIStatus* rc) noexcept {
        return attach(broker, rc) ? &associationMI_ : nullptr;
    }

private:
    // Made at the first call, so that loading the library runs none of the core's code.
    static ProviderStartup* startup() noexcept {
        try {
            static ProviderStartup state(Provider::startup());
            return &state;
        } catch (...) {
            return nullptr;
        }
    }

    static CMPIStatus status(CMPIrc rc) noexcept {
        CMPIStatus s = {rc, nullptr};
        return s;
    }

    // Records the broker and sets up the operators' log mirror. A mirror that cannot be set up
    // is left out (the broker still has every line; a later factory call tries again).
    static bool attach(const CMPIBroker* broker, CMPIStatus* rc) noexcept {
        broker_.store(broker);
        try {
            LogMirror::openFromEnvironment();
        } catch (...) {
            // Served without a mirror.
        }
        const bool ready = startup() != nullptr;
        if (rc != nullptr)
            *rc = status(ready ? CMPI_RC_OK : CMPI_RC_ERR_FAILED);
        return ready;
    }

    static const CMPIBroker* broker() noexcept { return broker_.load(); }

    // The forwarded call, once the start-up has run; a call that may not go on answers the
    // start-up's status instead.
    template <class Forward>
    static CMPIStatus afterStartup(const CMPIContext* ctx, const CMPIObjectPath* op,
                                   Forward forward) noexcept {
        ProviderStartup* state = startup();
        const CMPIStatus started =
            state != nullptr ? state->ensure(broker(), ctx, op) : status(CMPI_RC_ERR_FAILED);
        return started.rc != CMPI_RC_OK ? started : forward();
    }

    static CMPIStatus cleanup(CMPIInstanceMI* mi, const CMPIContext* ctx, CMPIBoolean t) noexcept {
        return ProviderStartup::cleanupAnswer(
            DiagServiceProviderCommonCleanup(broker(), mi, ctx, t), t);
    }
    static CMPIStatus enumInstanceNames(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                        const CMPIResult* rslt, const CMPIObjectPath* op) noexcept {
        return afterStartup(ctx, op, [&] {
            return DiagServiceProviderCommonEnumInstanceNames(broker(), mi, ctx, rslt, op);
        });
    }
    static CMPIStatus enumInstances(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                    const CMPIResult* rslt, const CMPIObjectPath* op,
                                    const char** props) noexcept {
        return afterStartup(ctx, op, [&] {
            return DiagServiceProviderCommonEnumInstances(broker(), mi, ctx, rslt, op, props);
        });
    }
    static CMPIStatus getInstance(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                  const CMPIResult* rslt, const CMPIObjectPath* op,
                                  const char** props) noexcept {
        return afterStartup(ctx, op, [&] {
            return DiagServiceProviderCommonGetInstance(broker(), mi, ctx, rslt, op, props);
        });
    }
    static CMPIStatus createInstance(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                     const CMPIResult* rslt, const CMPIObjectPath* op,
                                     const CMPIInstance* inst) noexcept {
        return DiagServiceProviderCommonCreateInstance(broker(), mi, ctx, rslt, op, inst);
    }
    static CMPIStatus modifyInstance(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                     const CMPIResult* rslt, const CMPIObjectPath* op,
                                     const CMPIInstance* inst, const char** props) noexcept {
        return DiagServiceProviderCommonModifyInstance(broker(), mi, ctx, rslt, op, inst, props);
    }
    static CMPIStatus deleteInstance(CMPIInstanceMI* mi, const CMPIContext* ctx,
                                     const CMPIResult* rslt, const CMPIObjectPath* op) noexcept {
        return DiagServiceProviderCommonDeleteInstance(broker(), mi, ctx, rslt, op);
    }
    static CMPIStatus execQuery(CMPIInstanceMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                                const CMPIObjectPath* op, const char* query,
                                const char* lang) noexcept {
        return DiagServiceProviderCommonExecQuery(broker(), mi, ctx, rslt, op, query, lang);
    }

    static CMPIStatus methodCleanup(CMPIMethodMI* mi, const CMPIContext* ctx,
                                    CMPIBoolean t) noexcept {
        return ProviderStartup::cleanupAnswer(
            DiagServiceProviderCommonMethodCleanup(broker(), mi, ctx, t), t);
    }
    static CMPIStatus invokeMethod(CMPIMethodMI* mi, const CMPIContext* ctx, const CMPIResult* rslt,
                                   const CMPIObjectPath* op, const char* method, const CMPIArgs* in,
                                   CMPIArgs* out) noexcept {
        return afterStartup(ctx, op, [&] {
            return DiagServiceProviderCommonInvokeMethod(broker(), mi, ctx, rslt, op, method, in,
                                                         out);
        });
    }

    static CMPIStatus associationCleanup(CMPIAssociationMI* mi, const CMPIContext* ctx,
                                         CMPIBoolean t) noexcept {
        return ProviderStartup::cleanupAnswer(
            DiagServiceProviderCommonAssociationCleanup(broker(), mi, ctx, t), t);
    }
    static CMPIStatus associators(CMPIAssociationMI* mi, const CMPIContext* ctx,
                                  const CMPIResult* rslt, const CMPIObjectPath* op,
                                  const char* assocClass, const char* resultClass, const char* role,
                                  const char* resultRole, const char** props) noexcept {
        return afterStartup(ctx, op, [&] {
            return DiagServiceProviderCommonAssociators(broker(), mi, ctx, rslt, op, assocClass,
                                                        resultClass, role, resultRole, props);
        });
    }
    static CMPIStatus associatorNames(CMPIAssociationMI* mi, const CMPIContext* ctx,
                                      const CMPIResult* rslt, const CMPIObjectPath* op,
                                      const char* assocClass, const char* resultClass,
                                      const char* role, const char* resultRole) noexcept {
        return afterStartup(ctx, op, [&] {
            return DiagServiceProviderCommonAssociatorNames(broker(), mi, ctx, rslt, op, assocClass,
                                                            resultClass, role, resultRole);
        });
    }
    static CMPIStatus references(CMPIAssociationMI* mi, const CMPIContext* ctx,
                                 const CMPIResult* rslt, const CMPIObjectPath* op,
                                 const char* resultClass, const char* role,
                                 const char** props) noexcept {
        return DiagServiceProviderCommonReferences(broker(), mi, ctx, rslt, op, resultClass, role,
                                                   props);
    }
    static CMPIStatus referenceNames(CMPIAssociationMI* mi, const CMPIContext* ctx,
                                     const CMPIResult* rslt, const CMPIObjectPath* op,
                                     const char* resultClass, const char* role) noexcept {
        return DiagServiceProviderCommonReferenceNames(broker(), mi, ctx, rslt, op, resultClass,
                                                       role);
    }

    static inline std::atomic<const CMPIBroker*> broker_{nullptr};

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

} // namespace NQORVA20

#endif
