// The provider-side macros: factory stubs must export <name>_Create_<Kind>MI with C linkage and
// fill every table slot with the matching prefixed function; accessor macros must reach the slot
// (or, for CMGetCharPtr, the handle) the standard names.
#include <cmpidt.h>
#include <cmpift.h>
#include <cmpimacs.h>
#include <cmpios.h>

#include "CmpiCProbe.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstring>
#include <string>

namespace {

const CMPIBroker* probeBroker = nullptr;
int probeHookRuns = 0;
std::string probeLastCall;

void probeHook() {
    ++probeHookRuns;
}

CMPIStatus record(const char* what) {
    probeLastCall = what;
    CMPIStatus st = {CMPI_RC_OK, nullptr};
    return st;
}

// Instance provider functions, prefix Probe.
CMPIStatus ProbeCleanup(CMPIInstanceMI*, const CMPIContext*, CMPIBoolean) {
    return record("Cleanup");
}
CMPIStatus ProbeEnumInstanceNames(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                                  const CMPIObjectPath*) {
    return record("EnumInstanceNames");
}
CMPIStatus ProbeEnumInstances(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                              const CMPIObjectPath*, const char**) {
    return record("EnumInstances");
}
CMPIStatus ProbeGetInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                            const CMPIObjectPath*, const char**) {
    return record("GetInstance");
}
CMPIStatus ProbeCreateInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                               const CMPIObjectPath*, const CMPIInstance*) {
    return record("CreateInstance");
}
CMPIStatus ProbeModifyInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                               const CMPIObjectPath*, const CMPIInstance*, const char**) {
    return record("ModifyInstance");
}
CMPIStatus ProbeDeleteInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                               const CMPIObjectPath*) {
    return record("DeleteInstance");
}
CMPIStatus ProbeExecQuery(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                          const CMPIObjectPath*, const char*, const char*) {
    return record("ExecQuery");
}

// Method provider functions.
CMPIStatus ProbeMethodCleanup(CMPIMethodMI*, const CMPIContext*, CMPIBoolean) {
    return record("MethodCleanup");
}
CMPIStatus ProbeInvokeMethod(CMPIMethodMI*, const CMPIContext*, const CMPIResult*,
                             const CMPIObjectPath*, const char*, const CMPIArgs*, CMPIArgs*) {
    return record("InvokeMethod");
}

// Association provider functions.
CMPIStatus ProbeAssociationCleanup(CMPIAssociationMI*, const CMPIContext*, CMPIBoolean) {
    return record("AssociationCleanup");
}
CMPIStatus ProbeAssociators(CMPIAssociationMI*, const CMPIContext*, const CMPIResult*,
                            const CMPIObjectPath*, const char*, const char*, const char*,
                            const char*, const char**) {
    return record("Associators");
}
CMPIStatus ProbeAssociatorNames(CMPIAssociationMI*, const CMPIContext*, const CMPIResult*,
                                const CMPIObjectPath*, const char*, const char*, const char*,
                                const char*) {
    return record("AssociatorNames");
}
CMPIStatus ProbeReferences(CMPIAssociationMI*, const CMPIContext*, const CMPIResult*,
                           const CMPIObjectPath*, const char*, const char*, const char**) {
    return record("References");
}
CMPIStatus ProbeReferenceNames(CMPIAssociationMI*, const CMPIContext*, const CMPIResult*,
                               const CMPIObjectPath*, const char*, const char*) {
    return record("ReferenceNames");
}

// Indication provider functions.
CMPIStatus ProbeIndicationCleanup(CMPIIndicationMI*, const CMPIContext*, CMPIBoolean) {
    return record("IndicationCleanup");
}
CMPIStatus ProbeAuthorizeFilter(CMPIIndicationMI*, const CMPIContext*, const CMPISelectExp*,
                                const char*, const CMPIObjectPath*, const char*) {
    return record("AuthorizeFilter");
}
CMPIStatus ProbeMustPoll(CMPIIndicationMI*, const CMPIContext*, const CMPISelectExp*, const char*,
                         const CMPIObjectPath*) {
    return record("MustPoll");
}
CMPIStatus ProbeActivateFilter(CMPIIndicationMI*, const CMPIContext*, const CMPISelectExp*,
                               const char*, const CMPIObjectPath*, CMPIBoolean) {
    return record("ActivateFilter");
}
CMPIStatus ProbeDeActivateFilter(CMPIIndicationMI*, const CMPIContext*, const CMPISelectExp*,
                                 const char*, const CMPIObjectPath*, CMPIBoolean) {
    return record("DeActivateFilter");
}
CMPIStatus ProbeEnableIndications(CMPIIndicationMI*, const CMPIContext*) {
    return record("EnableIndications");
}
CMPIStatus ProbeDisableIndications(CMPIIndicationMI*, const CMPIContext*) {
    return record("DisableIndications");
}

} // namespace

CMInstanceMIStub(Probe, StubProbe, probeBroker, probeHook())
    CMMethodMIStub(Probe, StubProbe, probeBroker, probeHook())
        CMAssociationMIStub(Probe, StubProbe, probeBroker, probeHook())
            CMIndicationMIStub(Probe, StubProbe, probeBroker, CMNoHook)

                namespace {

    // Only the address matters: the stubs store it, they never call through it.
    const CMPIBroker* fakeBroker() {
        static CMPIBroker broker = {};
        return &broker;
    }

    // Looks a factory up the way an object manager does after dlopen: by its unmangled name.
    void* exportedSymbol(const char* name) {
        return dlsym(RTLD_DEFAULT, name);
    }

    TEST(CmpiStubs, InstanceStubExportsFactoryWhoseTableCallsThePrefixedFunctions) {
        EXPECT_EQ(exportedSymbol("StubProbe_Create_InstanceMI"),
                  reinterpret_cast<void*>(&StubProbe_Create_InstanceMI));

        const int hookRunsBefore = probeHookRuns;
        CMPIStatus rc = {CMPI_RC_ERR_FAILED, nullptr};
        CMPIInstanceMI* mi = StubProbe_Create_InstanceMI(fakeBroker(), nullptr, &rc);
        ASSERT_NE(mi, nullptr);
        EXPECT_EQ(rc.rc, CMPI_RC_OK);
        EXPECT_EQ(probeBroker, fakeBroker());
        EXPECT_EQ(probeHookRuns, hookRunsBefore + 1);

        const CMPIInstanceMIFT* ft = mi->ft;
        EXPECT_EQ(ft->ftVersion, CMPICurrentVersion);
        EXPECT_EQ(ft->miVersion, CMPICurrentVersion);
        EXPECT_STREQ(ft->miName, "instanceStubProbe");
        EXPECT_EQ(ft->cleanup, &ProbeCleanup);
        EXPECT_EQ(ft->enumerateInstanceNames, &ProbeEnumInstanceNames);
        EXPECT_EQ(ft->enumerateInstances, &ProbeEnumInstances);
        EXPECT_EQ(ft->getInstance, &ProbeGetInstance);
        EXPECT_EQ(ft->createInstance, &ProbeCreateInstance);
        EXPECT_EQ(ft->modifyInstance, &ProbeModifyInstance);
        EXPECT_EQ(ft->deleteInstance, &ProbeDeleteInstance);
        EXPECT_EQ(ft->execQuery, &ProbeExecQuery);

        ft->enumerateInstances(mi, nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(probeLastCall, "EnumInstances");
        EXPECT_EQ(StubProbe_Create_InstanceMI(fakeBroker(), nullptr, nullptr), mi)
            << "the factory hands out one MI per library";
    }

    TEST(CmpiStubs, MethodAndAssociationStubsFillTheirTablesInSlotOrder) {
        EXPECT_NE(exportedSymbol("StubProbe_Create_MethodMI"), nullptr);
        EXPECT_NE(exportedSymbol("StubProbe_Create_AssociationMI"), nullptr);

        CMPIMethodMI* method = StubProbe_Create_MethodMI(fakeBroker(), nullptr, nullptr);
        ASSERT_NE(method, nullptr);
        EXPECT_STREQ(method->ft->miName, "methodStubProbe");
        EXPECT_EQ(method->ft->cleanup, &ProbeMethodCleanup);
        EXPECT_EQ(method->ft->invokeMethod, &ProbeInvokeMethod);

        CMPIAssociationMI* assoc = StubProbe_Create_AssociationMI(fakeBroker(), nullptr, nullptr);
        ASSERT_NE(assoc, nullptr);
        EXPECT_STREQ(assoc->ft->miName, "associationStubProbe");
        EXPECT_EQ(assoc->ft->cleanup, &ProbeAssociationCleanup);
        EXPECT_EQ(assoc->ft->associators, &ProbeAssociators);
        EXPECT_EQ(assoc->ft->associatorNames, &ProbeAssociatorNames);
        EXPECT_EQ(assoc->ft->references, &ProbeReferences);
        EXPECT_EQ(assoc->ft->referenceNames, &ProbeReferenceNames);
    }

    TEST(CmpiStubs, IndicationStubIncludesEnableAndDisable) {
        CMPIIndicationMI* ind = StubProbe_Create_IndicationMI(fakeBroker(), nullptr, nullptr);
        ASSERT_NE(ind, nullptr);
        EXPECT_EQ(ind->ft->cleanup, &ProbeIndicationCleanup);
        EXPECT_EQ(ind->ft->authorizeFilter, &ProbeAuthorizeFilter);
        EXPECT_EQ(ind->ft->mustPoll, &ProbeMustPoll);
        EXPECT_EQ(ind->ft->activateFilter, &ProbeActivateFilter);
        EXPECT_EQ(ind->ft->deActivateFilter, &ProbeDeActivateFilter);
        EXPECT_EQ(ind->ft->enableIndications, &ProbeEnableIndications);
        EXPECT_EQ(ind->ft->disableIndications, &ProbeDisableIndications);
    }

    TEST(CmpiStubs, StubCompiledAsCReachesTheCProviderFunctions) {
        EXPECT_EQ(exportedSymbol("CProbe_Create_PropertyMI"),
                  reinterpret_cast<void*>(&CProbe_Create_PropertyMI));

        const int hookRunsBefore = cmpiCProbeHookRuns();
        CMPIPropertyMI* mi = CProbe_Create_PropertyMI(fakeBroker(), nullptr, nullptr);
        ASSERT_NE(mi, nullptr);
        EXPECT_EQ(cmpiCProbeBroker(), fakeBroker());
        EXPECT_EQ(cmpiCProbeHookRuns(), hookRunsBefore + 1);
        EXPECT_STREQ(mi->ft->miName, "propertyCProbe");

        CMPIData nullData = {CMPI_string, CMPI_nullValue, {}};
        EXPECT_EQ(mi->ft->setProperty(mi, nullptr, nullptr, nullptr, "Name", nullData).rc,
                  CMPI_RC_ERR_INVALID_PARAMETER);
        EXPECT_STREQ(cmpiCProbeLastProperty(), "Name");
        EXPECT_EQ(mi->ft->getProperty(mi, nullptr, nullptr, nullptr, "Caption").rc,
                  CMPI_RC_ERR_NOT_FOUND);
        EXPECT_STREQ(cmpiCProbeLastProperty(), "Caption");
        EXPECT_EQ(mi->ft->cleanup(mi, nullptr, 0).rc, CMPI_RC_DO_NOT_UNLOAD);
        EXPECT_EQ(mi->ft->cleanup(mi, nullptr, 1).rc, CMPI_RC_OK);
    }

    // A string whose handle is its text and whose table answers a different text, so that the two
    // accessors can be told apart.
    char* tableText(const CMPIString*, CMPIStatus* rc) {
        CMSetStatus(rc, CMPI_RC_OK);
        static char text[] = "through the table";
        return text;
    }

    CMPIString* makeString(const CMPIBroker*, const char* data, CMPIStatus*) {
        static CMPIStringFT ft = {CMPICurrentVersion, nullptr, nullptr, tableText};
        static CMPIString str;
        str.hdl = const_cast<char*>(data);
        str.ft = &ft;
        return &str;
    }

    CMPIStatus failWithChars(const CMPIBroker* mb) {
        CMReturnWithChars(mb, CMPI_RC_ERR_NOT_SUPPORTED, "no such thing");
    }

    CMPIStatus failWithString(CMPIString * msg) {
        CMReturnWithString(CMPI_RC_ERR_FAILED, msg);
    }

    TEST(CmpiMacros, StringAccessorsReadTheHandleOrGoThroughTheTable) {
        CMPIBrokerEncFT eft = {};
        eft.newString = makeString;
        CMPIBroker broker = {};
        broker.eft = &eft;

        CMPIString* s = CMNewString(&broker, "in the handle", nullptr);
        EXPECT_STREQ(CMGetCharPtr(s), "in the handle");
        CMPIStatus rc = {CMPI_RC_ERR_FAILED, nullptr};
        EXPECT_STREQ(CMGetCharsPtr(s, &rc), "through the table");
        EXPECT_EQ(rc.rc, CMPI_RC_OK);
    }

    TEST(CmpiMacros, ReturnAndTestMacrosBuildAndReadStatusAndData) {
        CMPIBrokerEncFT eft = {};
        eft.newString = makeString;
        CMPIBroker broker = {};
        broker.eft = &eft;

        CMPIStatus withChars = failWithChars(&broker);
        EXPECT_EQ(withChars.rc, CMPI_RC_ERR_NOT_SUPPORTED);
        ASSERT_NE(withChars.msg, nullptr);
        EXPECT_STREQ(CMGetCharPtr(withChars.msg), "no such thing");

        CMPIStatus withString = failWithString(withChars.msg);
        EXPECT_EQ(withString.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(withString.msg, withChars.msg);

        CMPIData key = {CMPI_ref, CMPI_keyValue, {}};
        CMPIData array = {CMPI_stringA, CMPI_nullValue, {}};
        EXPECT_TRUE(CMIsKeyValue(key));
        EXPECT_FALSE(CMIsNullValue(key));
        EXPECT_FALSE(CMIsArray(key));
        EXPECT_TRUE(CMIsNullValue(array));
        EXPECT_TRUE(CMIsArray(array));

        CMPIString empty = {nullptr, nullptr};
        EXPECT_TRUE(CMIsNullObject(&empty));
        EXPECT_TRUE(CMIsNullObject(static_cast<CMPIString*>(nullptr)));
        EXPECT_FALSE(CMIsNullObject(withChars.msg));
    }

} // namespace
