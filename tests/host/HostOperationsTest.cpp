// Client operations of the Host routed to the test providers loaded from a registration file.
#include "HostTestSupport.h"

#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/LogSink.h"
#include "host/broker/ResultSink.h"
#include "host/providers/ProviderManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmpimacs.h>

using namespace hosttest;
using diaghost::CallScope;
using diaghost::ProviderRegistration;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class HostOperationsTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(elements.ok());
        elements.symbol<void()>("TestElements_reset")();
        host = loadedHost();
    }

    int requests(const std::string& request) {
        return elements.symbol<int(const char*)>("TestElements_requestCount")(request.c_str());
    }

    CMPIData uint32Arg(CMPIUint32 v) {
        CMPIData d{};
        d.type = CMPI_uint32;
        d.state = CMPI_goodValue;
        d.value.uint32 = v;
        return d;
    }

    LibraryHandle elements{"diaghosttest_elements"};
    std::unique_ptr<Host> host;
};

TEST_F(HostOperationsTest, EnumerationAsksTheClassAndEachSubclassWithItsOwnRegistration) {
    OperationResult r = host->enumerateInstances("root/cimv2", "Test_Element");
    ASSERT_TRUE(r.ok()) << r.status.message;
    EXPECT_THAT(propertyTexts(*host, r, "Name"), ElementsAre("alpha", "beta", "gamma"));
    EXPECT_EQ(requests("enumerateInstances:Test_Element"), 1);
    EXPECT_EQ(requests("enumerateInstances:Test_SpecialElement"), 1);
    // Test_DerivedElement has no registration of its own, so it is not asked separately.
    EXPECT_EQ(requests("enumerateInstances:Test_DerivedElement"), 0);
    // Three registrations, one library, opened once.
    EXPECT_EQ(host->providers().openCount("diaghosttest_elements"), 1u);
    EXPECT_THAT(host->providers().loadedLibraries(), ElementsAre("diaghosttest_elements"));

    OperationResult names = host->enumerateInstanceNames("root/cimv2", "Test_Element");
    ASSERT_TRUE(names.ok()) << names.status.message;
    EXPECT_THAT(pathTexts(*host, names),
                ElementsAre("root/cimv2:Test_Element.Name=\"alpha\"",
                            "root/cimv2:Test_Element.Name=\"beta\"",
                            "root/cimv2:Test_SpecialElement.Name=\"gamma\""));
}

TEST_F(HostOperationsTest, SubclassWithoutRegistrationIsAskedOfItsNearestRegisteredAncestor) {
    OperationResult special = host->enumerateInstances("root/cimv2", "Test_SpecialElement");
    ASSERT_TRUE(special.ok());
    EXPECT_THAT(propertyTexts(*host, special, "Name"), ElementsAre("gamma"));
    EXPECT_EQ(requests("enumerateInstances:Test_Element"), 0);

    OperationResult derived = host->enumerateInstances("root/cimv2", "Test_DerivedElement");
    ASSERT_TRUE(derived.ok());
    EXPECT_TRUE(derived.instances().empty());
    EXPECT_EQ(requests("enumerateInstances:Test_DerivedElement"), 1);
    ASSERT_TRUE(
        host->providers()
            .providerFor("root/cimv2", "Test_DerivedElement", ProviderRegistration::Instance)
            .has_value());
    EXPECT_EQ(host->providers()
                  .providerFor("root/cimv2", "Test_DerivedElement", ProviderRegistration::Instance)
                  ->className,
              "Test_SpecialElement");
}

TEST_F(HostOperationsTest, RegistrationsApplyPerNamespace) {
    host->loadMof(dataFile("TestHost.mof"), "root/test");
    // In root/test only Test_Element is registered: its subclass is not asked on its own.
    OperationResult r = host->enumerateInstances("root/test", "Test_Element");
    ASSERT_TRUE(r.ok()) << r.status.message;
    EXPECT_THAT(propertyTexts(*host, r, "Name"), ElementsAre("alpha", "beta"));
    EXPECT_EQ(requests("enumerateInstances:Test_SpecialElement"), 0);
    // Test_Assoc has no provider in root/test, nor static instances there.
    OperationResult a = host->associators("root/test:Test_Element.Name=\"alpha\"");
    ASSERT_TRUE(a.ok()) << a.status.message;
    EXPECT_TRUE(a.instances().empty());
}

TEST_F(HostOperationsTest, GetInstanceReturnsTheProvidersTypedInstance) {
    OperationResult r = host->getInstance("root/cimv2:Test_Element.Name=\"alpha\"");
    ASSERT_TRUE(r.ok()) << r.status.message;
    ASSERT_EQ(r.instances().size(), 1u);
    const CMPIInstance* alpha = r.instance();
    EXPECT_EQ(host->propertyText(alpha, "Size"), "1");
    EXPECT_EQ(host->propertyText(alpha, "Enabled"), "true");
    EXPECT_EQ(host->propertyText(alpha, "Offset"), "-5");
    EXPECT_EQ(host->propertyText(alpha, "Tags"), "{red, green}");
    EXPECT_EQ(host->propertyText(alpha, "Created"), std::nullopt);
    EXPECT_EQ(host->propertyText(alpha, "NoSuchProperty"), std::nullopt);
    EXPECT_EQ(host->mofText(alpha), "instance of Test_Element {\n"
                                    "    Name = \"alpha\";\n"
                                    "    Size = 1;\n"
                                    "    Enabled = TRUE;\n"
                                    "    Offset = -5;\n"
                                    "    Ratio = 0.5;\n"
                                    "    Tags = {\"red\", \"green\"};\n"
                                    "};");

    // The subclass instance through a path naming the subclass.
    OperationResult g = host->getInstance("Test_SpecialElement.Name=\"gamma\"");
    ASSERT_TRUE(g.ok()) << g.status.message;
    EXPECT_EQ(host->propertyText(g.instance(), "Special"), "shiny");
}

TEST_F(HostOperationsTest, ProviderErrorStatusReachesTheCallerUnchanged) {
    OperationResult missing = host->getInstance("root/cimv2:Test_Element.Name=\"nobody\"");
    EXPECT_EQ(missing.status.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(missing.status.message, "no element named \"nobody\"");
    EXPECT_TRUE(missing.instances().empty());

    OperationResult query = host->execQuery("root/cimv2", "Test_Element", "SELECT * FROM X");
    EXPECT_EQ(query.status.rc, CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED);
    EXPECT_EQ(query.status.message, "query language WQL is not supported by Test_ElementProvider");

    OperationResult fail = host->invokeMethod("Test_Element.Name=\"alpha\"", "Fail");
    EXPECT_EQ(fail.status.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(fail.status.message, "Fail fails as asked");
}

TEST_F(HostOperationsTest, InvokeMethodReturnsValueAndOutArgument) {
    OperationResult r = host->invokeMethod("root/cimv2:Test_Element.Name=\"alpha\"", "Ping",
                                           {{"Count", uint32Arg(41)}});
    ASSERT_TRUE(r.ok()) << r.status.message;
    CMPIData value = r.returnValue();
    ASSERT_EQ(value.type, CMPI_uint32);
    EXPECT_EQ(value.value.uint32, 42u);
    CMPIData echo = r.outArg("Echo");
    ASSERT_EQ(echo.type, CMPI_string);
    EXPECT_STREQ(CMGetCharsPtr(echo.value.string, nullptr), "alpha:41");
    EXPECT_EQ(requests("invokeMethod:Ping"), 1);

    // The subclass has its own method registration; the provider still finds its element.
    OperationResult g =
        host->invokeMethod("Test_SpecialElement.Name=\"gamma\"", "Ping", {{"Count", uint32Arg(1)}});
    ASSERT_TRUE(g.ok()) << g.status.message;
    EXPECT_EQ(g.returnValue().value.uint32, 2u);

    CMPIData nullCount{CMPI_uint32, CMPI_nullValue, {}};
    OperationResult wrong =
        host->invokeMethod("Test_Element.Name=\"alpha\"", "Ping", {{"Count", nullCount}});
    EXPECT_EQ(wrong.status.rc, CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(wrong.outArg("Echo").state & CMPI_notFound, CMPI_notFound);
}

TEST_F(HostOperationsTest, AssociationOperationsReachTheAssociationProvider) {
    const std::string alpha = "root/cimv2:Test_Element.Name=\"alpha\"";
    OperationResult all = host->associators(alpha, "Test_Assoc");
    ASSERT_TRUE(all.ok()) << all.status.message;
    EXPECT_THAT(propertyTexts(*host, all, "Name"), ElementsAre("beta", "gamma"));
    EXPECT_EQ(requests("associators:Test_Assoc"), 1);

    // No association class: every association provider of the namespace, under its own class.
    OperationResult names = host->associatorNames(alpha);
    ASSERT_TRUE(names.ok()) << names.status.message;
    EXPECT_THAT(pathTexts(*host, names),
                ElementsAre("root/cimv2:Test_Element.Name=\"beta\"",
                            "root/cimv2:Test_SpecialElement.Name=\"gamma\""));
    EXPECT_EQ(requests("associatorNames:Test_Assoc"), 1);

    OperationResult special = host->associators(alpha, "", "Test_SpecialElement");
    ASSERT_TRUE(special.ok());
    EXPECT_THAT(propertyTexts(*host, special, "Name"), ElementsAre("gamma"));

    OperationResult byRole = host->associatorNames(alpha, "", "", "Right");
    ASSERT_TRUE(byRole.ok());
    EXPECT_TRUE(byRole.paths().empty());

    OperationResult back = host->associators("Test_Element.Name=\"beta\"", "", "", "Right", "Left");
    ASSERT_TRUE(back.ok());
    EXPECT_THAT(propertyTexts(*host, back, "Name"), ElementsAre("alpha"));

    OperationResult refs = host->references(alpha);
    ASSERT_TRUE(refs.ok()) << refs.status.message;
    EXPECT_EQ(refs.instances().size(), 2u);
    OperationResult refNames =
        host->referenceNames("Test_SpecialElement.Name=\"gamma\"", "Test_Assoc", "Right");
    ASSERT_TRUE(refNames.ok());
    ASSERT_EQ(refNames.paths().size(), 1u);
    EXPECT_EQ(host->pathText(refNames.paths()[0]),
              "root/cimv2:Test_Assoc.Left=\"root/cimv2:Test_Element.Name=\\\"alpha\\\"\","
              "Right=\"root/cimv2:Test_SpecialElement.Name=\\\"gamma\\\"\"");
}

// Reads each object it is handed while the provider's return call lasts, as a server writing
// its answer does, and keeps only the names.
class NameStream : public diaghost::ResultSink::Stream {
public:
    bool instance(const CMPIInstance* returned) override {
        return take(returned->ft->getProperty(returned, "Name", nullptr));
    }
    bool path(const CMPIObjectPath* returned) override {
        return take(returned->ft->getKey(returned, "Name", nullptr));
    }
    std::vector<std::string> names;

private:
    bool take(const CMPIData& name) {
        names.push_back(CMGetCharPtr(name.value.string));
        return true;
    }
};

TEST_F(HostOperationsTest, AStreamReadsEachAnswerAsItIsReturnedAndTheResultKeepsNone) {
    NameStream stream;
    OperationResult all = host->enumerateInstances("root/cimv2", "Test_Element", &stream);
    ASSERT_TRUE(all.ok()) << all.status.message;
    EXPECT_TRUE(all.instances().empty());
    EXPECT_THAT(stream.names, ElementsAre("alpha", "beta", "gamma"));

    // Answers the host gathers itself before passing them on go to the stream the same way.
    stream.names.clear();
    CallScope scope(host->broker());
    CMPIObjectPath* alpha = host->parsePath("root/cimv2:Test_Element.Name=\"alpha\"");
    OperationResult associated = host->associators(alpha, "Test_Assoc", "", "", "", &stream);
    ASSERT_TRUE(associated.ok()) << associated.status.message;
    EXPECT_TRUE(associated.instances().empty());
    EXPECT_THAT(stream.names, ElementsAre("beta", "gamma"));

    stream.names.clear();
    OperationResult names = host->associatorNames(alpha, "Test_Assoc", "", "", "", &stream);
    ASSERT_TRUE(names.ok()) << names.status.message;
    EXPECT_TRUE(names.paths().empty());
    EXPECT_THAT(stream.names, ElementsAre("beta", "gamma"));
}

TEST_F(HostOperationsTest, UnknownClassNamespaceAndMissingProviderAreClearErrors) {
    EXPECT_EQ(host->enumerateInstances("root/cimv2", "Test_Nope").status.rc,
              CMPI_RC_ERR_INVALID_CLASS);
    EXPECT_EQ(host->enumerateInstances("root/nowhere", "Test_Element").status.rc,
              CMPI_RC_ERR_INVALID_NAMESPACE);
    EXPECT_EQ(host->getInstance("root/cimv2:Test_Nope.Id=\"x\"").status.rc,
              CMPI_RC_ERR_INVALID_CLASS);
    EXPECT_EQ(host->associators("Test_Element.Name=\"alpha\"", "Test_NoAssoc").status.rc,
              CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(host->associators("Test_Element.Name=\"alpha\"", "", "Test_NoClass").status.rc,
              CMPI_RC_ERR_INVALID_PARAMETER);

    OperationResult bad = host->getInstance("root/cimv2:Test_Element.Name=");
    EXPECT_EQ(bad.status.rc, CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_THAT(bad.status.message, HasSubstr("offset"));

    // A known class without provider: no instances, no methods, no changes.
    OperationResult empty = host->enumerateInstances("root/cimv2", "Test_Empty");
    EXPECT_TRUE(empty.ok());
    EXPECT_TRUE(empty.instances().empty());
    EXPECT_EQ(host->invokeMethod("Test_Empty.Id=\"x\"", "Go").status.rc, CMPI_RC_ERR_NOT_SUPPORTED);
    OperationResult undeletable = host->deleteInstance("Test_Static.Id=\"s1\"");
    EXPECT_EQ(undeletable.status.rc, CMPI_RC_ERR_NOT_SUPPORTED);
    EXPECT_THAT(undeletable.status.message,
                HasSubstr("no provider deletes instances of Test_Static"));

    // Registered libraries that cannot serve: an error at first use, not at registration.
    OperationResult missing = host->enumerateInstances("root/cimv2", "Test_Missing");
    EXPECT_EQ(missing.status.rc, CMPI_RC_ERR_FAILED);
    EXPECT_THAT(missing.status.message, HasSubstr("libdiaghosttest_nonexistent.so"));
    EXPECT_THAT(missing.status.message, HasSubstr("not found"));
    EXPECT_EQ(host->invokeMethod("Test_Missing.Id=\"x\"", "Go").status.rc, CMPI_RC_ERR_FAILED);
    EXPECT_FALSE(host->log().entries().empty());

    OperationResult noFactory = host->enumerateInstances("root/cimv2", "Test_NoFactory");
    EXPECT_EQ(noFactory.status.rc, CMPI_RC_ERR_FAILED);
    EXPECT_THAT(noFactory.status.message, HasSubstr("Test_NoSuchProvider_Create_InstanceMI"));
}

TEST_F(HostOperationsTest, UpcallFromOneProviderIsRoutedToAnother) {
    OperationResult mirrors = host->enumerateInstances("root/cimv2", "Test_Mirror");
    ASSERT_TRUE(mirrors.ok()) << mirrors.status.message;
    EXPECT_THAT(propertyTexts(*host, mirrors, "Name"), ElementsAre("alpha", "beta", "gamma"));
    EXPECT_THAT(propertyTexts(*host, mirrors, "Source"),
                ElementsAre("Test_Element", "Test_Element", "Test_SpecialElement"));
    EXPECT_EQ(requests("enumerateInstances:Test_SpecialElement"), 1);

    OperationResult one = host->getInstance("Test_Mirror.Name=\"gamma\"");
    ASSERT_TRUE(one.ok()) << one.status.message;
    EXPECT_EQ(host->propertyText(one.instance(), "Source"), "Test_SpecialElement");

    // The inner provider's error travels back through the upcall.
    OperationResult none = host->getInstance("Test_Mirror.Name=\"zeta\"");
    EXPECT_EQ(none.status.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(none.status.message, "no element named \"zeta\"");
}

TEST_F(HostOperationsTest, CreateAndDeleteReachTheProvider) {
    CMPIInstance* delta = nullptr;
    {
        CallScope scope(host->broker());
        const CMPIBroker* mb = host->broker().cmpi();
        CMPIObjectPath* op = CMNewObjectPath(mb, "root/cimv2", "Test_Element", nullptr);
        CMPIInstance* inst = CMNewInstance(mb, op, nullptr);
        CMSetProperty(inst, "Name", "delta", CMPI_chars);
        CMPIUint32 size = 9;
        CMSetProperty(inst, "Size", &size, CMPI_uint32);
        delta = CMClone(inst, nullptr);
    }
    OperationResult created = host->createInstance(delta);
    CMRelease(delta);
    ASSERT_TRUE(created.ok()) << created.status.message;
    ASSERT_EQ(created.paths().size(), 1u);
    EXPECT_EQ(host->pathText(created.paths()[0]), "root/cimv2:Test_Element.Name=\"delta\"");
    EXPECT_EQ(
        host->propertyText(host->getInstance("Test_Element.Name=\"delta\"").instance(), "Size"),
        "9");

    EXPECT_TRUE(host->deleteInstance("Test_Element.Name=\"delta\"").ok());
    OperationResult again = host->deleteInstance("Test_Element.Name=\"delta\"");
    EXPECT_EQ(again.status.rc, CMPI_RC_ERR_NOT_FOUND);
    EXPECT_EQ(again.status.message, "no element named \"delta\" to delete");
}

TEST_F(HostOperationsTest, PathWithoutNamespaceTakesTheContextNamespace) {
    CallScope scope(host->broker());
    const CMPIBroker* mb = host->broker().cmpi();
    CMPIObjectPath* op = CMNewObjectPath(mb, nullptr, "Test_Element", nullptr);
    CMAddKey(op, "Name", "alpha", CMPI_chars);
    diaghost::ResultSink sink(host->broker());
    auto status =
        host->providers().getInstance(host->broker().newContext("root/cimv2"), op, nullptr, sink);
    ASSERT_TRUE(status.ok()) << status.message;
    ASSERT_EQ(sink.instances().size(), 1u);
    // The provider was given the namespace in the path and answered with it.
    EXPECT_EQ(host->pathText(CMGetObjectPath(sink.instances()[0], nullptr)),
              "root/cimv2:Test_Element.Name=\"alpha\"");
    EXPECT_EQ(host->providers().getInstance(nullptr, op, nullptr, sink).rc,
              CMPI_RC_ERR_INVALID_NAMESPACE);
}

TEST_F(HostOperationsTest, PathTextFollowsTheHostDialect) {
    auto sfcb = loadedHost(PathDialect::Sfcb);
    OperationResult refs = sfcb->referenceNames("Test_Element.Name=\"beta\"");
    ASSERT_TRUE(refs.ok()) << refs.status.message;
    ASSERT_EQ(refs.paths().size(), 1u);
    EXPECT_EQ(sfcb->pathText(refs.paths()[0]),
              "root/cimv2:Test_Assoc.Left=root/cimv2:Test_Element.Name=\"alpha\","
              "Right=root/cimv2:Test_Element.Name=\"beta\"");
    // Reference values render in the dialect too.
    OperationResult refInstances = sfcb->references("Test_Element.Name=\"beta\"");
    ASSERT_EQ(refInstances.instances().size(), 1u);
    EXPECT_EQ(sfcb->propertyText(refInstances.instance(), "Left"),
              "root/cimv2:Test_Element.Name=\"alpha\"");
}

} // namespace
