// CIM operations as a WBEM client sends them, answered from the shipped providers: the message
// each one gets back, and the CIM errors for what cannot be answered.
#include "server/WbemOperations.h"

#include "../providers/ProviderTestSupport.h"

#include "host/broker/Broker.h"
#include "host/broker/CallArena.h"
#include "host/broker/CallScope.h"
#include "host/text/ObjectPathText.h"

#include <cmpift.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using diaghost::ObjectPathText;
using diagserver::CimRequest;
using diagserver::CimXmlWriter;
using diagserver::WbemOperations;
using Kind = CimRequest::Value::Kind;

class WbemOperationsTest : public ::testing::Test {
protected:
    // The whole response message to a request.
    std::string answer(const CimRequest& request, unsigned* code = nullptr) {
        std::string out;
        CimXmlWriter writer([&](std::string_view piece) { out.append(piece); });
        unsigned answered = operations.answer(request, writer);
        if (code)
            *code = answered;
        return out;
    }

    static CimRequest intrinsic(const std::string& method) {
        CimRequest r;
        r.messageId = "1001";
        r.method = method;
        r.nameSpace = "root/cimv2";
        return r;
    }

    static void add(CimRequest& r, const std::string& name, Kind kind, const std::string& text) {
        CimRequest::Value v;
        v.kind = kind;
        v.text = text;
        r.params.emplace_back(name, v);
    }

    static void addPath(CimRequest& r, const std::string& name, const std::string& pathText) {
        CimRequest::Value v;
        v.kind = Kind::InstanceName;
        v.path = ObjectPathText::parse(pathText);
        r.params.emplace_back(name, v);
    }

    static std::size_t count(const std::string& text, const std::string& what) {
        std::size_t n = 0;
        for (std::size_t at = text.find(what); at != std::string::npos;
             at = text.find(what, at + 1))
            ++n;
        return n;
    }

    // The service and element of the first file-system association, as path text.
    std::pair<std::string, std::string> serviceAndElement() {
        diaghost::CallScope scope(host.broker());
        auto result = host.enumerateInstances("root/cimv2", "ZORQ_FSAvailableDiagService");
        EXPECT_TRUE(result.ok() && !result.instances().empty());
        const CMPIInstance* assoc = result.instances().front();
        CMPIData service = assoc->ft->getProperty(assoc, "ServiceProvided", nullptr);
        CMPIData element = assoc->ft->getProperty(assoc, "UserOfService", nullptr);
        return {host.pathText(service.value.ref), host.pathText(element.value.ref)};
    }

    zorqtest::Host& host = zorqtest::sharedHost();
    WbemOperations operations{host};
};

TEST_F(WbemOperationsTest, EnumerationsAnswerEveryInstanceAsTheOperationAsks) {
    CimRequest names = intrinsic("EnumerateInstanceNames");
    add(names, "ClassName", Kind::ClassName, "ZORQ_FSDiagService");
    unsigned code = 99;
    std::string out = answer(names, &code);
    EXPECT_EQ(0u, code);
    const std::size_t expected =
        host.enumerateInstanceNames("root/cimv2", "ZORQ_FSDiagService").paths().size();
    ASSERT_GT(expected, 0u);
    EXPECT_NE(std::string::npos,
              out.find("<IMETHODRESPONSE NAME=\"EnumerateInstanceNames\">"
                       "<IRETURNVALUE><INSTANCENAME CLASSNAME=\"ZORQ_FSDiagService\">"));
    EXPECT_EQ(expected, count(out, "<INSTANCENAME "));
    EXPECT_NE(
        std::string::npos,
        out.find("<KEYBINDING NAME=\"Name\"><KEYVALUE VALUETYPE=\"string\" TYPE=\"string\">"));

    CimRequest full = intrinsic("EnumerateInstances");
    add(full, "ClassName", Kind::ClassName, "ZORQ_FSDiagService");
    CimRequest::Value list;
    list.kind = Kind::TextArray;
    list.texts = {"ElementName", "name"};
    full.params.emplace_back("PropertyList", list);
    out = answer(full);
    EXPECT_EQ(expected, count(out, "<VALUE.NAMEDINSTANCE>"));
    EXPECT_EQ(expected, count(out, "<PROPERTY NAME=\"ElementName\" TYPE=\"string\">"));
    EXPECT_EQ(expected, count(out, "<PROPERTY NAME=\"Name\" TYPE=\"string\">"));
    EXPECT_EQ(std::string::npos, out.find("<PROPERTY NAME=\"Caption\""));
}

TEST_F(WbemOperationsTest, OneWriterWritesInstancesOfSeveralClassesAsAFreshWriterWritesEach) {
    // A writer keeps each class's property tags for the rest of its answer; instances of
    // several classes taking turns must still each come out as on their own.
    diaghost::CallScope scope(host.broker());
    auto services = host.enumerateInstances("root/cimv2", "ZORQ_FSDiagService");
    auto associations = host.enumerateInstances("root/cimv2", "ZORQ_FSAvailableDiagService");
    ASSERT_TRUE(services.ok() && associations.ok());
    ASSERT_FALSE(services.instances().empty() || associations.instances().empty());
    std::vector<const CMPIInstance*> turns;
    for (std::size_t i = 0; i < 3; ++i) {
        turns.push_back(services.instances()[i % services.instances().size()]);
        turns.push_back(associations.instances()[i % associations.instances().size()]);
    }
    const std::vector<std::string> someProperties{"name", "ServiceProvided"};
    for (const std::vector<std::string>* filter :
         {static_cast<decltype(&someProperties)>(nullptr), &someProperties}) {
        std::string shared;
        CimXmlWriter one([&](std::string_view piece) { shared.append(piece); });
        std::string separate;
        for (const CMPIInstance* inst : turns) {
            one.instance(inst, filter);
            CimXmlWriter fresh([&](std::string_view piece) { separate.append(piece); });
            fresh.instance(inst, filter);
            fresh.flush();
        }
        one.flush();
        EXPECT_EQ(separate, shared);
        EXPECT_EQ(3u, count(shared, "<PROPERTY.REFERENCE NAME=\"ServiceProvided\">"));
    }
}

TEST_F(WbemOperationsTest, AnInstanceWrittenFromItselfReadsAsWrittenWithItsPath) {
    // The writer reads a host instance's name from the instance instead of making its path;
    // services have one key, the associations two references.
    diaghost::CallScope scope(host.broker());
    for (const char* cls : {"ZORQ_FSDiagService", "ZORQ_FSAvailableDiagService"}) {
        auto result = host.enumerateInstances("root/cimv2", cls);
        ASSERT_TRUE(result.ok() && !result.instances().empty()) << cls;
        for (const CMPIInstance* inst : result.instances()) {
            CMPIObjectPath* path = inst->ft->getObjectPath(inst, nullptr);
            std::string withPath;
            std::string fromItself;
            CimXmlWriter a([&](std::string_view piece) { withPath.append(piece); });
            CimXmlWriter b([&](std::string_view piece) { fromItself.append(piece); });
            a.namedInstance(path, inst, nullptr);
            a.objectWithPath(path, "server.example", inst, nullptr);
            b.namedInstance(nullptr, inst, nullptr);
            b.objectWithPath(nullptr, "server.example", inst, nullptr);
            a.flush();
            b.flush();
            EXPECT_EQ(withPath, fromItself) << cls;
            EXPECT_NE(std::string::npos, fromItself.find("<KEYBINDING NAME=")) << cls;
            path->ft->release(path);
        }
    }
}

TEST_F(WbemOperationsTest, WhatCannotBeAnsweredGetsItsCimError) {
    struct Case {
        std::string method;
        std::string ns;
        std::string className;
        unsigned code;
    };
    for (const Case& c : {Case{"EnumerateInstances", "root/nowhere", "ZORQ_FSDiagService", 3},
                          Case{"EnumerateInstances", "root/cimv2", "ZORQ_NoSuchClass", 5},
                          Case{"GetClass", "root/cimv2", "", 4},
                          Case{"CreateInstance", "root/cimv2", "ZORQ_FSDiagService", 7},
                          Case{"OpenEnumerateInstances", "root/cimv2", "ZORQ_FSDiagService", 7}}) {
        SCOPED_TRACE(c.method + " " + c.ns + " " + c.className);
        CimRequest r = intrinsic(c.method);
        r.nameSpace = c.ns;
        add(r, "ClassName", Kind::ClassName, c.className);
        unsigned code = 0;
        std::string out = answer(r, &code);
        EXPECT_EQ(c.code, code);
        EXPECT_NE(std::string::npos, out.find("<ERROR CODE=\"" + std::to_string(c.code) + "\""))
            << out;
        EXPECT_EQ(std::string::npos, out.find("<IRETURNVALUE>"));
    }
    // Parameters: a flag that is no boolean, one the operation does not take, one given twice,
    // a name that is missing; and every one an operation takes, in any case, is no reason.
    auto request = [](const std::string& method,
                      std::vector<std::pair<std::string, std::string>> params) {
        CimRequest r = intrinsic(method);
        for (const auto& [name, value] : params)
            add(r, name, name == "ClassName" || name == "classname" ? Kind::ClassName : Kind::Text,
                value);
        return r;
    };
    const std::string fs = "ZORQ_FSDiagService";
    const std::pair<CimRequest, unsigned> parameterCases[] = {
        {request("EnumerateInstances", {{"ClassName", fs}, {"DeepInheritance", "perhaps"}}), 4},
        {request("EnumerateInstances", {{"ClassName", fs}, {"Bogus", "1"}}), 4},
        {request("EnumerateInstanceNames",
                 {{"ClassName", fs}, {"classname", "CIM_ManagedElement"}}),
         4},
        {request("GetQualifier", {}), 4},
        {request("EnumerateInstances", {{"classname", fs},
                                        {"LOCALONLY", "false"},
                                        {"DeepInheritance", "false"},
                                        {"IncludeQualifiers", "false"},
                                        {"includeClassOrigin", "false"}}),
         0},
    };
    unsigned code = 0;
    for (const auto& [r, expected] : parameterCases) {
        SCOPED_TRACE(r.method + " with " + std::to_string(r.params.size()) + " parameters");
        code = 99;
        answer(r, &code);
        EXPECT_EQ(expected, code);
    }

    CimRequest missing = intrinsic("GetInstance");
    addPath(missing, "InstanceName",
            "ZORQ_FSDiagService.CreationClassName=\"ZORQ_FSDiagService\",Name=\"none\","
            "SystemCreationClassName=\"x\",SystemName=\"y\"");
    // The core's own answer to a get that misses reaches the client as it is.
    std::string out = answer(missing, &code);
    EXPECT_EQ(1u, code);
    EXPECT_NE(std::string::npos, out.find("<ERROR CODE=\"1\" DESCRIPTION=\"")) << out;
}

TEST_F(WbemOperationsTest, RunDiagnosticAsAMethodCallReturnsTheTestsValueAndLeavesARecord) {
    auto [service, element] = serviceAndElement();
    const std::size_t before =
        host.enumerateInstanceNames("root/cimv2", "ZORQ_FSDiagRecord").paths().size();
    CimRequest call;
    call.messageId = "7";
    call.intrinsic = false;
    call.method = "RunDiagnostic";
    call.nameSpace = "root/cimv2";
    call.target = ObjectPathText::parse(service);
    addPath(call, "ManagedElement", element);
    unsigned code = 99;
    std::string out = answer(call, &code);
    EXPECT_EQ(0u, code) << out;
    EXPECT_NE(std::string::npos, out.find("<METHODRESPONSE NAME=\"RunDiagnostic\"><RETURNVALUE "
                                          "PARAMTYPE=\"uint32\"><VALUE>"))
        << out;
    EXPECT_EQ(before + 1,
              host.enumerateInstanceNames("root/cimv2", "ZORQ_FSDiagRecord").paths().size());

    call.params.clear();
    add(call, "NoSuchParameter", Kind::Text, "1");
    answer(call, &code);
    EXPECT_EQ(4u, code);
}

TEST_F(WbemOperationsTest, AssociationsAnswerObjectsWithTheirFullPaths) {
    auto [service, element] = serviceAndElement();
    CimRequest r = intrinsic("AssociatorNames");
    addPath(r, "ObjectName", element);
    add(r, "AssocClass", Kind::ClassName, "ZORQ_FSAvailableDiagService");
    std::string out = answer(r);
    EXPECT_NE(std::string::npos, out.find("<OBJECTPATH><INSTANCEPATH><NAMESPACEPATH><HOST>"))
        << out;
    EXPECT_NE(std::string::npos, out.find("<LOCALNAMESPACEPATH><NAMESPACE NAME=\"root\"/>"
                                          "<NAMESPACE NAME=\"cimv2\"/></LOCALNAMESPACEPATH>"));
    // The association's own references come back as references.
    r.method = "Associators";
    out = answer(r);
    EXPECT_NE(std::string::npos, out.find("<VALUE.OBJECTWITHPATH>")) << out;
    EXPECT_NE(std::string::npos,
              out.find("<PROPERTY.REFERENCE NAME=\"ServiceProvided\"><VALUE.REFERENCE>"));
}

TEST_F(WbemOperationsTest, AssociationsOfAClassAnswerFromTheRepository) {
    auto ask = [&](const std::string& method, const std::string& className,
                   std::vector<std::pair<std::string, std::string>> params = {}) {
        CimRequest r = intrinsic(method);
        add(r, "ObjectName", Kind::ClassName, className);
        for (const auto& [name, value] : params)
            add(r, name, Kind::ClassName, value);
        unsigned code = 99;
        std::string out = answer(r, &code);
        EXPECT_EQ(0u, code) << out;
        return out;
    };
    // The service class is associated with the element classes through the availability
    // association, and with nothing through it in the role of the element.
    std::string out = ask("AssociatorNames", "ZORQ_FSDiagService",
                          {{"AssocClass", "ZORQ_FSAvailableDiagService"}});
    EXPECT_NE(std::string::npos, out.find("<OBJECTPATH><CLASSPATH><NAMESPACEPATH><HOST>")) << out;
    EXPECT_NE(std::string::npos, out.find("<CLASSNAME NAME=\"ZORQ_LocalFileSystem\"/>")) << out;
    EXPECT_EQ(std::string::npos, out.find("<INSTANCENAME"));
    out = ask("AssociatorNames", "ZORQ_FSDiagService",
              {{"AssocClass", "ZORQ_FSAvailableDiagService"}, {"Role", "UserOfService"}});
    EXPECT_EQ(1u, count(out, "<IRETURNVALUE/>") + count(out, "<IRETURNVALUE></IRETURNVALUE>"))
        << out;
    out = ask("References", "ZORQ_FSDiagService",
              {{"ResultClass", "CIM_AvailableDiagnosticService"}});
    EXPECT_NE(std::string::npos, out.find("<VALUE.OBJECTWITHPATH><CLASSPATH>")) << out;
    EXPECT_NE(std::string::npos, out.find("<CLASS NAME=\"ZORQ_FSAvailableDiagService\""));
    EXPECT_EQ(std::string::npos, out.find("<CLASS NAME=\"ZORQ_FSDiagService\""));
    CimRequest unknown = intrinsic("ReferenceNames");
    add(unknown, "ObjectName", Kind::ClassName, "ZORQ_NoSuchClass");
    unsigned code = 0;
    answer(unknown, &code);
    EXPECT_EQ(5u, code);
}

TEST_F(WbemOperationsTest, MethodParametersReadAsTheirDeclaredTypes) {
    // RunDiagnosticService hands back its job; the job's RequestStateChange takes a uint16.
    auto [service, element] = serviceAndElement();
    CimRequest run;
    run.intrinsic = false;
    run.method = "RunDiagnosticService";
    run.nameSpace = "root/cimv2";
    run.target = ObjectPathText::parse(service);
    addPath(run, "ManagedElement", element);
    unsigned code = 99;
    std::string out = answer(run, &code);
    ASSERT_EQ(0u, code) << out;
    // Done within the call (0) or started (4096): a job either way.
    EXPECT_TRUE(out.find("<RETURNVALUE PARAMTYPE=\"uint32\"><VALUE>4096</VALUE>") !=
                    std::string::npos ||
                out.find("<RETURNVALUE PARAMTYPE=\"uint32\"><VALUE>0</VALUE>") != std::string::npos)
        << out;
    const std::size_t id = out.find("<KEYBINDING NAME=\"InstanceID\">");
    ASSERT_NE(std::string::npos, id) << out;
    const std::size_t from = out.find('>', out.find("<KEYVALUE", id)) + 1;
    const std::string jobId = out.substr(from, out.find('<', from) - from);

    CimRequest stop;
    stop.intrinsic = false;
    stop.method = "RequestStateChange";
    stop.nameSpace = "root/cimv2";
    stop.target = ObjectPathText::parse("ZORQ_FSDiagJob.InstanceID=\"" + jobId + "\"");
    add(stop, "RequestedState", Kind::Text, "5");
    out = answer(stop, &code);
    EXPECT_EQ(0u, code) << out;
    // Started and then killed, or ended already: either way the job's answer, not a refusal.
    EXPECT_TRUE(out.find("<VALUE>4096</VALUE>") != std::string::npos ||
                out.find("<VALUE>4097</VALUE>") != std::string::npos)
        << out;
    stop.params.clear();
    add(stop, "RequestedState", Kind::Text, "five");
    answer(stop, &code);
    EXPECT_EQ(4u, code);

    // A parameter given twice, or one the method only hands back, is no input to it.
    CimRequest twice = run;
    addPath(twice, "managedelement", element);
    code = 0;
    answer(twice, &code);
    EXPECT_EQ(4u, code);
    CimRequest output = run;
    addPath(output, "Job", "ZORQ_FSDiagJob.InstanceID=\"" + jobId + "\"");
    code = 0;
    answer(output, &code);
    EXPECT_EQ(4u, code);
}

TEST_F(WbemOperationsTest, AnsweringKeepsNothingWithTheBroker) {
    CimRequest full = intrinsic("EnumerateInstances");
    add(full, "ClassName", Kind::ClassName, "ZORQ_FSDiagRecord");
    auto [service, element] = serviceAndElement();
    CimRequest call;
    call.intrinsic = false;
    call.method = "RunDiagnostic";
    call.nameSpace = "root/cimv2";
    call.target = ObjectPathText::parse(service);
    addPath(call, "ManagedElement", element);
    answer(call);
    answer(full);
    const std::size_t kept = host.broker().ownArena().size();
    for (int i = 0; i < 20; ++i) {
        answer(call);
        answer(full);
    }
    EXPECT_EQ(kept, host.broker().ownArena().size());
}

TEST_F(WbemOperationsTest, ALongAnswerWrittenPieceByPieceIsTheWholeAnswer) {
    auto [service, element] = serviceAndElement();
    CimRequest call;
    call.intrinsic = false;
    call.method = "RunDiagnostic";
    call.nameSpace = "root/cimv2";
    call.target = ObjectPathText::parse(service);
    addPath(call, "ManagedElement", element);
    for (int i = 0; i < 3; ++i)
        answer(call);
    CimRequest assoc = intrinsic("Associators");
    addPath(assoc, "ObjectName", service);
    add(assoc, "AssocClass", Kind::ClassName, "ZORQ_FSAvailableDiagService");
    CimRequest records = intrinsic("EnumerateInstances");
    add(records, "ClassName", Kind::ClassName, "ZORQ_FSDiagRecord");
    CimRequest names = intrinsic("EnumerateInstanceNames");
    add(names, "ClassName", Kind::ClassName, "ZORQ_FSDiagRecord");
    const std::pair<CimRequest, std::string> cases[] = {{records, "<VALUE.NAMEDINSTANCE>"},
                                                        {names, "<INSTANCENAME "},
                                                        {assoc, "<VALUE.OBJECTWITHPATH>"}};
    for (const auto& [request, item] : cases) {
        SCOPED_TRACE(request.method);
        const std::string whole = answer(request);
        std::string pieces;
        std::size_t calls = 0;
        CimXmlWriter writer([&](std::string_view piece) { pieces.append(piece); }, 1);
        auto reply = operations.reply(request, writer);
        EXPECT_EQ(0u, reply->code()) << whole;
        // The head is written before the operation's items; each call adds one item or a piece
        // of several the operation wrote meanwhile, and the last the end of the message.
        EXPECT_EQ(std::string::npos, pieces.find(item));
        while (reply->writeMore(writer, 1))
            ++calls;
        EXPECT_FALSE(reply->writeMore(writer, 1));
        EXPECT_EQ(whole, pieces);
        EXPECT_GE(count(whole, item), 2u);
        EXPECT_LE(calls, count(whole, item));
    }
}

TEST_F(WbemOperationsTest, ClassesAnswerFromTheRepository) {
    CimRequest get = intrinsic("GetClass");
    add(get, "ClassName", Kind::ClassName, "ZORQ_FSDiagService");
    add(get, "LocalOnly", Kind::Text, "false");
    std::string out = answer(get);
    EXPECT_NE(std::string::npos,
              out.find("<CLASS NAME=\"ZORQ_FSDiagService\" SUPERCLASS=\"CIM_DiagnosticService\">"));
    EXPECT_NE(std::string::npos, out.find("<METHOD NAME=\"RunDiagnostic\" TYPE=\"uint32\""));
    EXPECT_NE(std::string::npos, out.find("<PARAMETER.REFERENCE NAME=\"ManagedElement\""));

    CimRequest names = intrinsic("EnumerateClassNames");
    add(names, "ClassName", Kind::ClassName, "CIM_DiagnosticService");
    add(names, "DeepInheritance", Kind::Text, "TRUE");
    out = answer(names);
    EXPECT_NE(std::string::npos, out.find("<CLASSNAME NAME=\"ZORQ_FSDiagService\"/>"));
    EXPECT_NE(std::string::npos, out.find("<CLASSNAME NAME=\"ZORQ_NetDiagService\"/>"));

    CimRequest qualifier = intrinsic("GetQualifier");
    add(qualifier, "QualifierName", Kind::Text, "Key");
    out = answer(qualifier);
    EXPECT_NE(std::string::npos, out.find("<QUALIFIER.DECLARATION NAME=\"Key\" TYPE=\"boolean\""))
        << out;
}

TEST_F(WbemOperationsTest, AClassAnswersTheMembersItOverridesAsItsOwn) {
    // CIM_ConcreteJob overrides the InstanceID key and Name it inherits: they are among the
    // members of the class alone, not propagated, and their origin is the class itself.
    CimRequest local = intrinsic("GetClass");
    add(local, "ClassName", Kind::ClassName, "CIM_ConcreteJob");
    std::string out = answer(local);
    EXPECT_NE(std::string::npos, out.find("<PROPERTY NAME=\"InstanceID\" TYPE=\"string\">")) << out;
    EXPECT_NE(std::string::npos, out.find("<PROPERTY NAME=\"Name\" TYPE=\"string\">"));
    EXPECT_EQ(std::string::npos, out.find("NAME=\"Caption\""));

    CimRequest whole = intrinsic("GetClass");
    add(whole, "ClassName", Kind::ClassName, "CIM_ConcreteJob");
    add(whole, "LocalOnly", Kind::Text, "false");
    add(whole, "IncludeClassOrigin", Kind::Text, "true");
    out = answer(whole);
    EXPECT_NE(std::string::npos, out.find("<PROPERTY NAME=\"InstanceID\" TYPE=\"string\" "
                                          "CLASSORIGIN=\"CIM_ConcreteJob\">"))
        << out;
    EXPECT_NE(std::string::npos,
              out.find("<PROPERTY NAME=\"Caption\" TYPE=\"string\" "
                       "CLASSORIGIN=\"CIM_ManagedElement\" PROPAGATED=\"true\">"));
    // A qualifier says the flavors its declaration gives it.
    EXPECT_NE(std::string::npos,
              out.find("<QUALIFIER NAME=\"Key\" TYPE=\"boolean\" OVERRIDABLE=\"false\">"));
}

} // namespace
