// The request decoder: CIM-XML request messages into CimRequest, the CIMError and HTTP status for
// each kind of message it cannot serve, and the reader's refusal of documents that would make the
// server do unbounded work or read local files.
#include "server/CimXmlDecoder.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using diaghost::LiteralKind;
using diagserver::CimRequest;
using diagserver::CimXmlDecoder;
using diagserver::DecodeError;
using diagserver::XmlReader;
using Kind = CimRequest::Value::Kind;

const char* const kRootCimv2 =
    R"(<LOCALNAMESPACEPATH><NAMESPACE NAME="root"/><NAMESPACE NAME="cimv2"/></LOCALNAMESPACEPATH>)";

class CimXmlDecoderTest : public ::testing::Test {
protected:
    static std::string message(const std::string& call,
                               const std::string& cim = R"(CIMVERSION="2.0" DTDVERSION="2.0")",
                               const std::string& msg = R"(ID="1001" PROTOCOLVERSION="1.0")") {
        return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<CIM " + cim + "><MESSAGE " + msg +
               "><SIMPLEREQ>" + call + "</SIMPLEREQ></MESSAGE></CIM>";
    }

    static std::string intrinsic(const std::string& method, const std::string& params) {
        return "<IMETHODCALL NAME=\"" + method + "\">" + kRootCimv2 + params + "</IMETHODCALL>";
    }

    static std::string key(const std::string& name, const std::string& value,
                           const std::string& type = "string") {
        return "<KEYBINDING NAME=\"" + name + "\"><KEYVALUE VALUETYPE=\"" + type + "\">" + value +
               "</KEYVALUE></KEYBINDING>";
    }

    static CimRequest decode(const std::string& text, XmlReader::Limits limits = {}) {
        return CimXmlDecoder::decode(text, limits);
    }

    // The CIMError, HTTP status and reason a message is refused with; "decoded" when it is not.
    struct Refusal {
        std::string cimError = "decoded";
        int status = 200;
        std::string why;
    };
    static Refusal refusal(const std::string& text, XmlReader::Limits limits = {}) {
        try {
            CimXmlDecoder::decode(text, limits);
        } catch (const DecodeError& e) {
            return {e.cimError(), e.httpStatus(), e.what()};
        }
        return {};
    }

    static const CimRequest::Value& param(const CimRequest& r, const std::string& name) {
        static const CimRequest::Value absent{Kind::Other, "absent", false, {}, {}, {}, {}};
        const CimRequest::Value* v = r.param(name);
        EXPECT_NE(nullptr, v) << name;
        return v ? *v : absent;
    }
};

TEST_F(CimXmlDecoderTest, IntrinsicCallsDecodeIntoMethodNamespaceAndTypedParameters) {
    const CimRequest get = decode(message(
        "<CORRELATOR NAME=\"c\" TYPE=\"string\"><VALUE>x</VALUE></CORRELATOR>" +
        intrinsic("GetInstance",
                  "<IPARAMVALUE NAME=\"InstanceName\"><INSTANCENAME CLASSNAME=\"ZORQ_Disk\">" +
                      key("Name", "sda &amp; &quot;b&quot; &#x20AC;") +
                      key("Number", "-12", "numeric") + key("Weight", "1.5e3", "numeric") +
                      key("Ready", "TRUE", "boolean") +
                      "<KEYBINDING NAME=\"Plain\"><KEYVALUE>p</KEYVALUE></KEYBINDING>"
                      "</INSTANCENAME></IPARAMVALUE>"
                      "<IPARAMVALUE NAME=\"LocalOnly\"><VALUE>FALSE</VALUE></IPARAMVALUE>")));
    EXPECT_TRUE(get.intrinsic);
    EXPECT_EQ("1001", get.messageId);
    EXPECT_EQ("GetInstance", get.method);
    EXPECT_EQ("root/cimv2", get.nameSpace);
    ASSERT_EQ(2u, get.params.size());
    const auto& name = param(get, "instancename"); // parameter names match in any case
    ASSERT_EQ(Kind::InstanceName, name.kind);
    EXPECT_EQ("ZORQ_Disk", name.path.className);
    EXPECT_EQ("", name.path.nameSpace);
    const std::vector<std::pair<LiteralKind, std::string>> keys = {
        {LiteralKind::String, "sda & \"b\" \xE2\x82\xAC"},
        {LiteralKind::Integer, "-12"},
        {LiteralKind::Real, "1.5e3"},
        {LiteralKind::Boolean, "TRUE"},
        {LiteralKind::String, "p"}};
    ASSERT_EQ(keys.size(), name.path.keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        EXPECT_EQ(keys[i].first, name.path.keys[i].kind) << i;
        EXPECT_EQ(keys[i].second, name.path.keys[i].text) << i;
    }
    EXPECT_EQ(Kind::Text, param(get, "LocalOnly").kind);
    EXPECT_EQ("FALSE", param(get, "LocalOnly").text);

    // An empty property list asks for no properties; a list without a value asks for all.
    const CimRequest enumerate = decode(message(intrinsic(
        "EnumerateInstances",
        "<IPARAMVALUE NAME=\"ClassName\"><CLASSNAME NAME=\"CIM_Disk\"/></IPARAMVALUE>"
        "<IPARAMVALUE NAME=\"DeepInheritance\"><VALUE>TRUE</VALUE></IPARAMVALUE>"
        "<IPARAMVALUE NAME=\"PropertyList\"><VALUE.ARRAY><VALUE>Name</VALUE><VALUE>Size</VALUE>"
        "</VALUE.ARRAY></IPARAMVALUE><IPARAMVALUE NAME=\"Empty\"><VALUE.ARRAY/></IPARAMVALUE>"
        "<IPARAMVALUE NAME=\"Unset\"/>")));
    EXPECT_EQ(Kind::ClassName, param(enumerate, "ClassName").kind);
    EXPECT_EQ("CIM_Disk", param(enumerate, "ClassName").text);
    EXPECT_EQ("TRUE", param(enumerate, "DeepInheritance").text);
    EXPECT_EQ(Kind::TextArray, param(enumerate, "PropertyList").kind);
    EXPECT_EQ((std::vector<std::string>{"Name", "Size"}), param(enumerate, "PropertyList").texts);
    EXPECT_EQ(Kind::TextArray, param(enumerate, "Empty").kind);
    EXPECT_TRUE(param(enumerate, "Empty").texts.empty());
    EXPECT_EQ(Kind::Null, param(enumerate, "Unset").kind);
    EXPECT_EQ(nullptr, enumerate.param("IncludeQualifiers"));

    // A key may itself be a reference, with the namespace it names.
    const CimRequest associators = decode(message(intrinsic(
        "Associators",
        "<IPARAMVALUE NAME=\"ObjectName\"><INSTANCENAME CLASSNAME=\"ZORQ_Link\">"
        "<KEYBINDING NAME=\"Left\"><VALUE.REFERENCE><LOCALINSTANCEPATH>" +
            std::string(kRootCimv2) + "<INSTANCENAME CLASSNAME=\"ZORQ_Disk\">" + key("Id", "7") +
            "</INSTANCENAME></LOCALINSTANCEPATH></VALUE.REFERENCE></KEYBINDING></INSTANCENAME>"
            "</IPARAMVALUE><IPARAMVALUE NAME=\"AssocClass\"><CLASSNAME NAME=\"ZORQ_Link\"/>"
            "</IPARAMVALUE><IPARAMVALUE NAME=\"Role\"><VALUE>Left</VALUE></IPARAMVALUE>")));
    const auto& object = param(associators, "ObjectName");
    ASSERT_EQ(1u, object.path.keys.size());
    EXPECT_EQ(LiteralKind::Reference, object.path.keys[0].kind);
    ASSERT_NE(nullptr, object.path.keys[0].reference);
    EXPECT_EQ("root/cimv2", object.path.keys[0].reference->nameSpace);
    EXPECT_EQ("ZORQ_Disk", object.path.keys[0].reference->className);
    EXPECT_EQ("7", object.path.keys[0].reference->keys.at(0).text);
    EXPECT_EQ("ZORQ_Link", param(associators, "AssocClass").text);
    EXPECT_EQ("Left", param(associators, "Role").text);
}

TEST_F(CimXmlDecoderTest, ExtrinsicCallsDecodeTheirTargetAndParametersOfEveryForm) {
    const std::string target = "<LOCALINSTANCEPATH>" + std::string(kRootCimv2) +
                               "<INSTANCENAME CLASSNAME=\"ZORQ_FSDiagService\">" +
                               key("Name", "fs") + "</INSTANCENAME></LOCALINSTANCEPATH>";
    const CimRequest call = decode(message(
        "<METHODCALL NAME=\"RunDiagnostic\">" + target +
        "<PARAMVALUE NAME=\"Count\" PARAMTYPE=\"uint32\"><VALUE>3</VALUE></PARAMVALUE>"
        "<PARAMVALUE NAME=\"Names\" PARAMTYPE=\"string\"><VALUE.ARRAY><VALUE>a</VALUE><VALUE/>"
        "</VALUE.ARRAY></PARAMVALUE>"
        "<PARAMVALUE NAME=\"ManagedElement\" PARAMTYPE=\"reference\"><VALUE.REFERENCE>"
        "<INSTANCEPATH><NAMESPACEPATH><HOST>db.example</HOST><LOCALNAMESPACEPATH>"
        "<NAMESPACE NAME=\"root/cimv2\"/></LOCALNAMESPACEPATH></NAMESPACEPATH>"
        "<INSTANCENAME CLASSNAME=\"ZORQ_LocalFileSystem\">" +
        key("Name", "/") +
        "</INSTANCENAME></INSTANCEPATH></VALUE.REFERENCE></PARAMVALUE>"
        "<PARAMVALUE NAME=\"Setting\" PARAMTYPE=\"string\" EmbeddedObject=\"instance\"><VALUE>"
        "&lt;INSTANCE CLASSNAME=\"X\"/&gt;</VALUE></PARAMVALUE>"
        "<PARAMVALUE NAME=\"Others\" PARAMTYPE=\"reference\"><VALUE.REFARRAY>"
        "<VALUE.REFERENCE><INSTANCENAME CLASSNAME=\"A\"/></VALUE.REFERENCE>"
        "<VALUE.REFERENCE><INSTANCENAME CLASSNAME=\"B\">" +
        key("K", "1", "numeric") +
        "</INSTANCENAME></VALUE.REFERENCE></VALUE.REFARRAY></PARAMVALUE>"
        "<PARAMVALUE NAME=\"Missing\" PARAMTYPE=\"string\"/>"
        "<PARAMVALUE NAME=\"Whole\"><INSTANCE CLASSNAME=\"X\"/></PARAMVALUE></METHODCALL>"));
    EXPECT_FALSE(call.intrinsic);
    EXPECT_FALSE(call.classTarget);
    EXPECT_EQ("RunDiagnostic", call.method);
    EXPECT_EQ("root/cimv2", call.nameSpace);
    EXPECT_EQ("root/cimv2", call.target.nameSpace);
    EXPECT_EQ("ZORQ_FSDiagService", call.target.className);
    ASSERT_EQ(1u, call.target.keys.size());
    EXPECT_EQ("fs", call.target.keys[0].text);

    std::vector<std::string> order;
    for (const auto& p : call.params)
        order.push_back(p.first);
    EXPECT_EQ((std::vector<std::string>{"Count", "Names", "ManagedElement", "Setting", "Others",
                                        "Missing", "Whole"}),
              order);
    EXPECT_EQ("uint32", param(call, "Count").type);
    EXPECT_EQ("3", param(call, "Count").text);
    EXPECT_EQ((std::vector<std::string>{"a", ""}), param(call, "Names").texts);
    const auto& element = param(call, "ManagedElement");
    EXPECT_EQ(Kind::InstanceName, element.kind);
    EXPECT_EQ("reference", element.type);
    EXPECT_EQ("db.example", element.path.host);
    EXPECT_EQ("root/cimv2", element.path.nameSpace);
    EXPECT_EQ("ZORQ_LocalFileSystem", element.path.className);
    EXPECT_TRUE(param(call, "Setting").embeddedInstance);
    EXPECT_EQ("<INSTANCE CLASSNAME=\"X\"/>", param(call, "Setting").text);
    EXPECT_FALSE(param(call, "Count").embeddedInstance);
    const auto& others = param(call, "Others");
    EXPECT_EQ(Kind::ReferenceArray, others.kind);
    ASSERT_EQ(2u, others.paths.size());
    EXPECT_EQ("A", others.paths[0].className);
    EXPECT_EQ(LiteralKind::Integer, others.paths[1].keys.at(0).kind);
    EXPECT_EQ(Kind::Null, param(call, "Missing").kind);
    EXPECT_EQ("string", param(call, "Missing").type);
    EXPECT_EQ(Kind::Other, param(call, "Whole").kind);

    const CimRequest static_ =
        decode(message("<METHODCALL NAME=\"Reset\"><LOCALCLASSPATH>" + std::string(kRootCimv2) +
                       "<CLASSNAME NAME=\"ZORQ_FSDiagService\"/></LOCALCLASSPATH></METHODCALL>"));
    EXPECT_TRUE(static_.classTarget);
    EXPECT_EQ("ZORQ_FSDiagService", static_.target.className);
    EXPECT_EQ("root/cimv2", static_.target.nameSpace);
    EXPECT_TRUE(static_.target.keys.empty());
    EXPECT_TRUE(static_.params.empty());
}

TEST_F(CimXmlDecoderTest, EnvelopesThatCannotBeServedGetTheirCimErrorAndStatus) {
    const std::string call = intrinsic("EnumerateClassNames", "");
    struct Case {
        std::string label, text, cimError;
        int status;
    };
    const std::vector<Case> cases = {
        {"minor versions",
         message(call, R"(CIMVERSION="2.6" DTDVERSION="2.4")", R"(ID="1" PROTOCOLVERSION="1.4")"),
         "decoded", 200},
        {"CIM 3", message(call, R"(CIMVERSION="3.0" DTDVERSION="2.0")"), "unsupported-cim-version",
         501},
        {"CIM 20", message(call, R"(CIMVERSION="20" DTDVERSION="2.0")"), "unsupported-cim-version",
         501},
        // A version the DTD requires and the message lacks makes it invalid, not unsupported.
        {"no CIMVERSION", message(call, R"(DTDVERSION="2.0")"), "request-not-valid", 400},
        {"no PROTOCOLVERSION", message(call, R"(CIMVERSION="2.0" DTDVERSION="2.0")", R"(ID="1")"),
         "request-not-valid", 400},
        {"DTD 1.1", message(call, R"(CIMVERSION="2.0" DTDVERSION="1.1")"),
         "unsupported-dtd-version", 501},
        {"protocol 2",
         message(call, R"(CIMVERSION="2.0" DTDVERSION="2.0")", R"(ID="1" PROTOCOLVERSION="2.0")"),
         "unsupported-protocol-version", 501},
        {"MULTIREQ",
         R"(<CIM CIMVERSION="2.0" DTDVERSION="2.0"><MESSAGE ID="1" PROTOCOLVERSION="1.0">)"
         "<MULTIREQ><SIMPLEREQ>" +
             call + "</SIMPLEREQ><SIMPLEREQ>" + call + "</SIMPLEREQ></MULTIREQ></MESSAGE></CIM>",
         "multiple-requests-unsupported", 501},
        {"no SIMPLEREQ",
         R"(<CIM CIMVERSION="2.0" DTDVERSION="2.0"><MESSAGE ID="1" PROTOCOLVERSION="1.0">)"
         "<SIMPLERSP/></MESSAGE></CIM>",
         "request-not-valid", 400},
        {"a second request after the first",
         R"(<CIM CIMVERSION="2.0" DTDVERSION="2.0"><MESSAGE ID="1" PROTOCOLVERSION="1.0">)"
         "<SIMPLEREQ>" +
             call + "</SIMPLEREQ><SIMPLEREQ>" + call + "</SIMPLEREQ></MESSAGE></CIM>",
         "request-not-valid", 400},
        {"no MESSAGE", R"(<CIM CIMVERSION="2.0" DTDVERSION="2.0"/>)", "request-not-valid", 400},
        {"no ID", message(call, R"(CIMVERSION="2.0" DTDVERSION="2.0")", R"(PROTOCOLVERSION="1.0")"),
         "request-not-valid", 400},
        {"empty SIMPLEREQ", message(""), "request-not-valid", 400},
        {"export call", message(R"(<EXPMETHODCALL NAME="ExportIndication"/>)"), "request-not-valid",
         400},
        {"other root", R"(<html><body>hello</body></html>)", "request-not-valid", 400},
        {"unclosed", message(call).substr(0, 120), "request-not-well-formed", 400},
        {"crossed tags", "<CIM><MESSAGE></CIM></MESSAGE>", "request-not-well-formed", 400},
        {"unquoted attribute", "<CIM CIMVERSION=2.0/>", "request-not-well-formed", 400},
        {"two roots", message(call) + "<CIM/>", "request-not-well-formed", 400},
        {"empty body", "", "request-not-well-formed", 400},
        {"only text", "GetInstance root/cimv2", "request-not-well-formed", 400},
        {"undeclared entity", message(intrinsic("X&nbsp;", "")), "request-not-well-formed", 400},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        const Refusal r = refusal(c.text);
        EXPECT_EQ(c.cimError, r.cimError) << r.why;
        EXPECT_EQ(c.status, r.status);
    }
}

TEST_F(CimXmlDecoderTest, CallsMissingWhatTheyNeedAreNotValidRequests) {
    const std::string instance =
        "<INSTANCENAME CLASSNAME=\"C\">" + key("K", "v") + "</INSTANCENAME>";
    const auto withParam = [](const std::string& value) {
        return message(intrinsic("GetInstance",
                                 "<IPARAMVALUE NAME=\"InstanceName\">" + value + "</IPARAMVALUE>"));
    };
    std::vector<std::pair<std::string, std::string>> cases = {
        {"no method name", "<IMETHODCALL>" + std::string(kRootCimv2) + "</IMETHODCALL>"},
        {"no namespace", "<IMETHODCALL NAME=\"GetClass\"/>"},
        {"empty namespace", "<IMETHODCALL NAME=\"GetClass\"><LOCALNAMESPACEPATH/></IMETHODCALL>"},
        {"unnamed namespace part",
         "<IMETHODCALL NAME=\"GetClass\"><LOCALNAMESPACEPATH><NAMESPACE/></LOCALNAMESPACEPATH>"
         "</IMETHODCALL>"},
        {"namespace part with an empty name",
         "<IMETHODCALL NAME=\"GetClass\"><LOCALNAMESPACEPATH><NAMESPACE NAME=\"\"/>"
         "<NAMESPACE NAME=\"root\"/></LOCALNAMESPACEPATH></IMETHODCALL>"},
        {"foreign namespace part",
         "<IMETHODCALL NAME=\"GetClass\"><LOCALNAMESPACEPATH><HOST>h</HOST></LOCALNAMESPACEPATH>"
         "</IMETHODCALL>"},
        {"extrinsic parameter", intrinsic("GetClass", "<PARAMVALUE NAME=\"X\"/>")},
        {"unnamed parameter", intrinsic("GetClass", "<IPARAMVALUE><VALUE>x</VALUE></IPARAMVALUE>")},
        {"two values", intrinsic("GetClass", "<IPARAMVALUE NAME=\"P\"><VALUE>1</VALUE>"
                                             "<VALUE>2</VALUE></IPARAMVALUE>")},
        {"instance without class", "<INSTANCENAME>" + key("K", "v") + "</INSTANCENAME>"},
        {"unnamed key", "<INSTANCENAME CLASSNAME=\"C\"><KEYVALUE>v</KEYVALUE></INSTANCENAME>"},
        {"key without name",
         "<INSTANCENAME CLASSNAME=\"C\"><KEYBINDING><KEYVALUE>v</KEYVALUE></KEYBINDING>"
         "</INSTANCENAME>"},
        {"key of unknown type",
         "<INSTANCENAME CLASSNAME=\"C\">" + key("K", "v", "datetime") + "</INSTANCENAME>"},
        {"key given twice",
         "<INSTANCENAME CLASSNAME=\"C\">" + key("K", "v") + key("k", "w") + "</INSTANCENAME>"},
        {"key with no value",
         "<INSTANCENAME CLASSNAME=\"C\"><KEYBINDING NAME=\"K\"/></INSTANCENAME>"},
        {"key with two values",
         "<INSTANCENAME CLASSNAME=\"C\"><KEYBINDING NAME=\"K\"><KEYVALUE>1</KEYVALUE>"
         "<KEYVALUE>2</KEYVALUE></KEYBINDING></INSTANCENAME>"},
        {"key holding a VALUE",
         "<INSTANCENAME CLASSNAME=\"C\"><KEYBINDING NAME=\"K\"><VALUE>1</VALUE></KEYBINDING>"
         "</INSTANCENAME>"},
        {"empty reference", "<VALUE.REFERENCE/>"},
        {"reference to a class", "<VALUE.REFERENCE><CLASSNAME NAME=\"C\"/></VALUE.REFERENCE>"},
        {"reference with two paths",
         "<VALUE.REFERENCE>" + instance + instance + "</VALUE.REFERENCE>"},
        {"local path without namespace", "<VALUE.REFERENCE><LOCALINSTANCEPATH>" + instance +
                                             "</LOCALINSTANCEPATH></VALUE.REFERENCE>"},
        {"full path without host", "<VALUE.REFERENCE><INSTANCEPATH><NAMESPACEPATH>" +
                                       std::string(kRootCimv2) + "</NAMESPACEPATH>" + instance +
                                       "</INSTANCEPATH></VALUE.REFERENCE>"},
        {"array of references",
         "<VALUE.ARRAY><VALUE.REFERENCE>" + instance + "</VALUE.REFERENCE></VALUE.ARRAY>"},
        {"reference array of values", "<VALUE.REFARRAY><VALUE>x</VALUE></VALUE.REFARRAY>"},
        {"class name without name", "<CLASSNAME/>"},
        {"method call on nothing", "<METHODCALL NAME=\"M\"/>"},
        {"method call with an intrinsic parameter",
         "<METHODCALL NAME=\"M\"><LOCALINSTANCEPATH>" + std::string(kRootCimv2) + instance +
             "</LOCALINSTANCEPATH><IPARAMVALUE NAME=\"P\"/></METHODCALL>"},
        {"class method without class", "<METHODCALL NAME=\"M\"><LOCALCLASSPATH>" +
                                           std::string(kRootCimv2) +
                                           "</LOCALCLASSPATH></METHODCALL>"},
    };
    std::string manyKeys;
    for (int i = 0; i < 257; ++i)
        manyKeys += key("K" + std::to_string(i), "v");
    cases.emplace_back("more keys than a path may have",
                       "<INSTANCENAME CLASSNAME=\"C\">" + manyKeys + "</INSTANCENAME>");
    for (const auto& [label, body] : cases) {
        SCOPED_TRACE(label);
        // Whole calls go in SIMPLEREQ as they are; values go in an InstanceName parameter.
        const bool call = body.rfind("<IMETHODCALL", 0) == 0 || body.rfind("<METHODCALL", 0) == 0;
        const Refusal r = refusal(call ? message(body) : withParam(body));
        EXPECT_EQ("request-not-valid", r.cimError) << r.why;
        EXPECT_EQ(400, r.status);
    }
}

TEST_F(CimXmlDecoderTest, HostileDocumentsAreRefusedWithoutExpansionFetchOrUnboundedWork) {
    // Ten levels of ten references each: a thousand million copies if it were ever expanded.
    std::string bomb = "<?xml version=\"1.0\"?>\n<!DOCTYPE CIM [\n<!ENTITY e0 \"lollollollol\">\n";
    for (int level = 1; level <= 10; ++level) {
        bomb += "<!ENTITY e" + std::to_string(level) + " \"";
        for (int i = 0; i < 10; ++i)
            bomb += "&e" + std::to_string(level - 1) + ";";
        bomb += "\">\n";
    }
    bomb += "]>\n" + message(intrinsic("GetClass", "<IPARAMVALUE NAME=\"ClassName\"><VALUE>&e10;"
                                                   "</VALUE></IPARAMVALUE>"));
    const std::string passwd = "<IPARAMVALUE NAME=\"ClassName\"><VALUE>&x;</VALUE></IPARAMVALUE>";
    std::string deep = R"(<CIM CIMVERSION="2.0" DTDVERSION="2.0">)";
    for (int i = 0; i < 100000; ++i)
        deep += "<VALUE>";
    for (int i = 0; i < 100000; ++i)
        deep += "</VALUE>";
    deep += "</CIM>";
    const auto inValue = [&](const std::string& bytes) {
        return message(intrinsic("GetClass", "<IPARAMVALUE NAME=\"ClassName\"><VALUE>" + bytes +
                                                 "</VALUE></IPARAMVALUE>"));
    };

    const std::vector<std::pair<std::string, std::string>> cases = {
        {"entity expansion bomb", bomb},
        {"external entity", "<!DOCTYPE CIM [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>" +
                                message(intrinsic("GetClass", passwd))},
        {"external document type", "<!DOCTYPE CIM SYSTEM \"/etc/passwd\">" + message("")},
        {"parameter entity",
         "<!DOCTYPE CIM [<!ENTITY % p SYSTEM \"/etc/passwd\"> %p;]>" + message("")},
        {"100000 levels", deep},
        {"100000 levels never closed", deep.substr(0, deep.size() / 2)},
        {"truncated sequence", inValue("\xC3(")},
        {"stray continuation byte", inValue("a\x80z")},
        {"overlong slash", inValue("\xC0\xAF")},
        {"surrogate", inValue("\xED\xA0\x80")},
        {"past U+10FFFF", inValue("\xF4\x90\x80\x80")},
        {"0xFF in an attribute", message(intrinsic("Get\xFF", ""))},
        {"Latin-1 declared", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" +
                                 message(intrinsic("GetClass", "<IPARAMVALUE NAME=\"R\">"
                                                               "<VALUE>caf\xE9</VALUE>"
                                                               "</IPARAMVALUE>"))},
        {"NUL", inValue(std::string("a\0b", 3))},
        {"control character reference", inValue("&#1;")},
    };
    for (const auto& [label, text] : cases) {
        SCOPED_TRACE(label);
        const Refusal r = refusal(text);
        EXPECT_EQ("request-not-well-formed", r.cimError) << r.why;
        EXPECT_EQ(400, r.status);
        EXPECT_EQ(std::string::npos, r.why.find("root:")) << r.why;
    }
    EXPECT_NE(std::string::npos, refusal(bomb).why.find("document type")) << refusal(bomb).why;
}

TEST_F(CimXmlDecoderTest, NestingAndElementLimitsAdmitExactlyTheirCount) {
    std::string values;
    for (int i = 0; i < 100; ++i)
        values += "<VALUE>p" + std::to_string(i) + "</VALUE>";
    // CIM MESSAGE SIMPLEREQ IMETHODCALL LOCALNAMESPACEPATH NAMESPACE*2 IPARAMVALUE VALUE.ARRAY
    // and the values: 109 elements, the values 7 deep; with the attributes of CIM (2), MESSAGE
    // (2), IMETHODCALL, the NAMESPACEs and IPARAMVALUE, 117 nodes.
    const std::string text =
        message(intrinsic("EnumerateInstances", "<IPARAMVALUE NAME=\"PropertyList\"><VALUE.ARRAY>" +
                                                    values + "</VALUE.ARRAY></IPARAMVALUE>"));
    EXPECT_EQ(100u, param(decode(text, {7, 117}), "PropertyList").texts.size());
    const Refusal tooMany = refusal(text, {7, 116});
    EXPECT_EQ("request-not-well-formed", tooMany.cimError);
    EXPECT_NE(std::string::npos, tooMany.why.find("more than 116 elements and attributes"))
        << tooMany.why;
    // Attributes count as much as elements: one element with many of them is refused as well.
    std::string attributes;
    for (int i = 0; i < 200; ++i)
        attributes += " a" + std::to_string(i) + "=\"\"";
    const std::string wide = message(intrinsic(
        "EnumerateInstances", "<IPARAMVALUE NAME=\"X\"><VALUE" + attributes + "/></IPARAMVALUE>"));
    EXPECT_NE(std::string::npos, refusal(wide, {7, 117}).why.find("elements and attributes"));
    const Refusal tooDeep = refusal(text, {6, 117});
    EXPECT_EQ("request-not-well-formed", tooDeep.cimError);
    EXPECT_NE(std::string::npos, tooDeep.why.find("deeper than 6")) << tooDeep.why;

    // A server set to allow very deep documents still reads and frees them without running out
    // of stack.
    const int deep = 200000;
    std::string nested;
    for (int i = 0; i < deep; ++i)
        nested += "<a>";
    for (int i = 0; i < deep; ++i)
        nested += "</a>";
    diagserver::XmlReader::Limits loose;
    loose.depth = deep + 1;
    loose.nodes = deep + 1;
    EXPECT_NE(nullptr, diagserver::XmlReader::read(nested, loose));
}

TEST_F(CimXmlDecoderTest, AMessageFedInPiecesReadsAsTheWholeAndARefusalStays) {
    const std::string text = message(intrinsic(
        "GetClass", "<IPARAMVALUE NAME=\"ClassName\"><VALUE>caf\xC3\xA9 \xF0\x9F\x98\x80</VALUE>"
                    "</IPARAMVALUE>"));
    XmlReader reader;
    for (char c : text) // every multi-byte character split across pieces
        reader.feed(std::string_view(&c, 1));
    const CimRequest r = CimXmlDecoder::decode(*reader.finish());
    EXPECT_EQ("caf\xC3\xA9 \xF0\x9F\x98\x80", param(r, "ClassName").text);

    XmlReader refused;
    EXPECT_THROW(refused.feed("<!DOCTYPE CIM []><CIM/>"), diagserver::XmlRefused);
    EXPECT_THROW(refused.feed("<CIM/>"), diagserver::XmlRefused);
    EXPECT_THROW(refused.finish(), diagserver::XmlRefused);
}

} // namespace
