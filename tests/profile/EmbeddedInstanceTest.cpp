// Reading an instance carried as text: what a client sends is read whole, and hostile or malformed
// text is refused with an EmbeddedInstanceError before anything is expanded, fetched or grown.
#include "profile/EmbeddedInstance.h"
#include "profile/EmbeddedInstanceWriter.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

namespace {

using NQORVA20::profile::EmbeddedInstance;
using NQORVA20::profile::EmbeddedInstanceError;
using NQORVA20::profile::EmbeddedInstanceWriter;

class EmbeddedInstanceTest : public ::testing::Test {
protected:
    // The message of the error the text is refused with; a failure when it is read.
    static std::string refusal(const std::string& text) {
        try {
            EmbeddedInstance::parse(text);
        } catch (const EmbeddedInstanceError& e) {
            return e.what();
        }
        ADD_FAILURE() << "accepted: " << text.substr(0, 120);
        return std::string();
    }

    static std::string instance(const std::string& content) {
        return "<INSTANCE CLASSNAME=\"X\">" + content + "</INSTANCE>";
    }

    static std::string scalar(const std::string& name, const std::string& value) {
        return "<PROPERTY NAME=\"" + name + "\" TYPE=\"string\"><VALUE>" + value +
               "</VALUE></PROPERTY>";
    }
};

TEST_F(EmbeddedInstanceTest, ReadsAnInstanceAsAClientSendsIt) {
    const EmbeddedInstance in = EmbeddedInstance::parse(
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
        "<INSTANCE CLASSNAME=\"ZORQ_NetDiagSetting\">\n"
        "  <QUALIFIER NAME=\"Description\" TYPE=\"string\"><VALUE>leaks</VALUE></QUALIFIER>\n"
        "  <PROPERTY NAME=\"ElementName\" TYPE=\"string\">\n"
        "    <QUALIFIER NAME=\"MaxLen\" TYPE=\"uint32\"><VALUE>256</VALUE></QUALIFIER>\n"
        "    <VALUE>&lt;Pr&#xFC;fung&gt; &amp; &quot;&#26908;&#x67FB;&quot; "
        "\xC3\xA9&apos;</VALUE>\n"
        "  </PROPERTY>\n"
        "  <PROPERTY NAME=\"Caption\" TYPE=\"string\"></PROPERTY>\n"
        "  <PROPERTY NAME=\"Empty\" TYPE=\"string\"><VALUE></VALUE></PROPERTY>\n"
        "  <PROPERTY.ARRAY NAME=\"LoopControlParameter\" TYPE=\"string\"><VALUE.ARRAY>"
        "<VALUE>10</VALUE><VALUE.NULL/><VALUE> 60 </VALUE></VALUE.ARRAY></PROPERTY.ARRAY>\n"
        "  <PROPERTY.ARRAY NAME=\"LogOptions\" TYPE=\"uint16\"><VALUE.ARRAY/></PROPERTY.ARRAY>\n"
        "  <PROPERTY.ARRAY NAME=\"VerbosityLevel\" TYPE=\"uint16\"></PROPERTY.ARRAY>\n"
        "  <PROPERTY.REFERENCE NAME=\"Owner\" REFERENCECLASS=\"CIM_System\"><VALUE.REFERENCE>"
        "<INSTANCENAME CLASSNAME=\"CIM_System\"><KEYBINDING NAME=\"Name\"><KEYVALUE>h"
        "</KEYVALUE></KEYBINDING></INSTANCENAME></VALUE.REFERENCE></PROPERTY.REFERENCE>\n"
        "</INSTANCE>\n");
    EXPECT_EQ("ZORQ_NetDiagSetting", in.className());
    ASSERT_EQ(7u, in.properties().size());
    EXPECT_EQ("ElementName", in.properties()[0].name); // in the order given

    const EmbeddedInstance::Property* name = in.find("elementname");
    ASSERT_NE(nullptr, name);
    EXPECT_EQ("string", name->type);
    EXPECT_FALSE(name->null);
    EXPECT_EQ(std::vector<std::string>{"<Pr\xC3\xBC"
                                       "fung> & \"\xE6\xA4\x9C\xE6\x9F\xBB\" \xC3\xA9'"},
              name->values);

    EXPECT_TRUE(in.find("Caption")->null);
    EXPECT_TRUE(in.find("Caption")->values.empty());
    EXPECT_FALSE(in.find("Empty")->null);
    EXPECT_EQ(std::vector<std::string>{""}, in.find("Empty")->values);

    const EmbeddedInstance::Property* parameters = in.find("LOOPCONTROLPARAMETER");
    EXPECT_TRUE(parameters->array);
    EXPECT_EQ((std::vector<std::string>{"10", "", " 60 "}), parameters->values);
    EXPECT_EQ((std::vector<bool>{false, true, false}), parameters->nullEntries);
    EXPECT_FALSE(in.find("LogOptions")->null); // an empty array is not a null one
    EXPECT_TRUE(in.find("LogOptions")->values.empty());
    EXPECT_TRUE(in.find("VerbosityLevel")->null);

    EXPECT_EQ("reference", in.find("Owner")->type);
    EXPECT_FALSE(in.find("Owner")->null);
    EXPECT_EQ(nullptr, in.find("Description")); // qualifiers are not properties
    EXPECT_EQ(nullptr, in.find("ElementNam"));
}

TEST_F(EmbeddedInstanceTest, ReadsBackWhatTheWriterWrites) {
    const std::string awkward = "a<b>&c\"d'e \xE2\x82\xAC ]]> &amp;";
    const EmbeddedInstance in =
        EmbeddedInstance::parse(EmbeddedInstanceWriter("CIM_DiagnosticSettingData")
                                    .property("Text", "string", awkward)
                                    .array("List", "uint16", {"2", "3"})
                                    .array("None", "string", {})
                                    .text());
    EXPECT_EQ(awkward, in.find("Text")->values.at(0));
    EXPECT_EQ((std::vector<std::string>{"2", "3"}), in.find("List")->values);
    EXPECT_FALSE(in.find("None")->null);
}

TEST_F(EmbeddedInstanceTest, EntityDeclarationsAreRefusedUnexpanded) {
    // Ten levels of ten references each: 10^10 copies if it were expanded.
    std::string bomb = "<!DOCTYPE INSTANCE [<!ENTITY e0 \"lollollollollollollollollollol\">";
    for (int i = 1; i < 10; ++i) {
        bomb += "<!ENTITY e" + std::to_string(i) + " \"";
        for (int j = 0; j < 10; ++j)
            bomb += "&e" + std::to_string(i - 1) + ";";
        bomb += "\">";
    }
    bomb += "]>" + instance(scalar("P", "&e9;"));
    EXPECT_NE(std::string::npos, refusal(bomb).find("document type declaration"));
    // Without a declaration an entity reference is unknown, not looked for anywhere.
    EXPECT_NE(std::string::npos, refusal(instance(scalar("P", "&e9;"))).find("not well-formed"));
}

TEST_F(EmbeddedInstanceTest, ExternalEntitiesAreNeitherReadNorQuoted) {
    std::ifstream passwd("/etc/passwd");
    std::string firstLine;
    std::getline(passwd, firstLine);
    for (const std::string& text : {
             "<!DOCTYPE INSTANCE [<!ENTITY e SYSTEM \"/etc/passwd\">]>" +
                 instance(scalar("P", "&e;")),
             "<!DOCTYPE INSTANCE SYSTEM \"/etc/passwd\">" + instance(scalar("P", "x")),
             "<!DOCTYPE INSTANCE [<!ENTITY % p SYSTEM \"/etc/passwd\"> %p;]>" + instance(""),
         }) {
        const std::string message = refusal(text);
        EXPECT_NE(std::string::npos, message.find("document type declaration")) << message;
        EXPECT_EQ(std::string::npos, message.find("root:")) << message;
        if (!firstLine.empty()) {
            EXPECT_EQ(std::string::npos, message.find(firstLine)) << message;
        }
    }
}

TEST_F(EmbeddedInstanceTest, NestingIsRefusedPastThirtyTwoLevels) {
    auto nested = [&](std::size_t levels) { // INSTANCE, QUALIFIER, then skipped elements
        std::string open, close;
        for (std::size_t i = 2; i < levels; ++i) {
            open += "<a>";
            close = "</a>" + close;
        }
        return instance("<QUALIFIER NAME=\"Q\">" + open + close + "</QUALIFIER>");
    };
    EXPECT_NO_THROW(EmbeddedInstance::parse(nested(EmbeddedInstance::maxDepth)));
    EXPECT_NE(std::string::npos, refusal(nested(EmbeddedInstance::maxDepth + 1)).find("deeper"));

    std::string deep = "<INSTANCE CLASSNAME=\"X\">";
    for (int i = 0; i < 100000; ++i)
        deep += "<VALUE>";
    EXPECT_NE(std::string::npos, refusal(deep).find("refused"));
}

TEST_F(EmbeddedInstanceTest, ElementCountAndSizeAreBounded) {
    std::string qualifiers;
    for (std::size_t i = 1; i < EmbeddedInstance::maxElements; ++i)
        qualifiers += "<QUALIFIER/>";
    EXPECT_NO_THROW(EmbeddedInstance::parse(instance(qualifiers)));
    EXPECT_NE(std::string::npos,
              refusal(instance(qualifiers + "<QUALIFIER/>")).find("more than 10000 elements"));

    std::string largest = instance(scalar("P", "v"));
    largest += std::string(EmbeddedInstance::maxText - largest.size(), ' ');
    EXPECT_NO_THROW(EmbeddedInstance::parse(largest));
    EXPECT_NE(std::string::npos, refusal(largest + " ").find("larger than 1 MiB"));
}

TEST_F(EmbeddedInstanceTest, InvalidUtf8IsRefused) {
    for (const std::string bad :
         {"\xC3\x28", "\xC0\xAF", "\xED\xA0\x80", "\xF8\x88\x80\x80\x80", "\xFF"}) {
        SCOPED_TRACE(bad);
        EXPECT_NE(std::string::npos, refusal(instance(scalar("P", bad))).find("not well-formed"));
        EXPECT_NE(std::string::npos, refusal(instance(scalar(bad, "v"))).find("not well-formed"));
    }
}

TEST_F(EmbeddedInstanceTest, TextThatIsNotOneInstanceIsRefused) {
    struct Case {
        std::string text;
        const char* says;
    };
    for (const Case& c : {
             Case{"", "no element found"},
             Case{"INSTANCE", "syntax error"},
             Case{"<CLASS NAME=\"X\"/>", "root element is \"CLASS\""},
             Case{"<INSTANCENAME CLASSNAME=\"X\"/>", "root element is \"INSTANCENAME\""},
             Case{"<QUALIFIER NAME=\"Q\"/>", "root element is \"QUALIFIER\""},
             Case{"<INSTANCE/>", "no CLASSNAME"},
             Case{"<INSTANCE CLASSNAME=\"\"/>", "no CLASSNAME"},
             Case{instance("") + instance(""), "junk after document element"},
             Case{"<INSTANCE CLASSNAME=\"X\">", "no element found"},
             Case{instance("&bogus;"), "undefined entity"},
         }) {
        SCOPED_TRACE(c.text);
        EXPECT_NE(std::string::npos, refusal(c.text).find(c.says)) << refusal(c.text);
    }
}

TEST_F(EmbeddedInstanceTest, PropertiesMustBeNamedOnceWithOneValueInPlace) {
    struct Case {
        std::string content;
        const char* says;
    };
    for (const Case& c : {
             Case{"<PROPERTY TYPE=\"string\"/>", "PROPERTY without a NAME"},
             Case{"<PROPERTY.ARRAY NAME=\"\" TYPE=\"string\"/>", "PROPERTY.ARRAY without a NAME"},
             Case{scalar("P", "1") + scalar("P", "2"), "property \"P\" is given twice"},
             Case{scalar("Mode", "1") + "<PROPERTY.ARRAY NAME=\"MODE\"/>",
                  "property \"MODE\" is given twice"},
             Case{"<PROPERTY NAME=\"P\"><VALUE>1</VALUE><VALUE>2</VALUE></PROPERTY>",
                  "property \"P\" has more than one value"},
             Case{"<PROPERTY NAME=\"P\"><VALUE>1<VALUE>2</VALUE></VALUE></PROPERTY>",
                  "unexpected element \"VALUE\" in a VALUE"},
             Case{"<PROPERTY.ARRAY NAME=\"P\"><VALUE>1</VALUE></PROPERTY.ARRAY>",
                  "unexpected element \"VALUE\" in a PROPERTY.ARRAY"},
             Case{"<PROPERTY NAME=\"P\"><VALUE.ARRAY/></PROPERTY>",
                  "unexpected element \"VALUE.ARRAY\" in a PROPERTY"},
             Case{"<PROPERTY NAME=\"P\"><VALUE><QUALIFIER/></VALUE></PROPERTY>",
                  "unexpected element \"QUALIFIER\" in a VALUE"},
             Case{"<METHOD NAME=\"M\"/>", "unexpected element \"METHOD\" in the INSTANCE"},
         }) {
        SCOPED_TRACE(c.content);
        EXPECT_NE(std::string::npos, refusal(instance(c.content)).find(c.says))
            << refusal(instance(c.content));
    }
}

TEST_F(EmbeddedInstanceTest, MessagesSayWhereAndQuoteLittle) {
    const std::string message =
        refusal("<INSTANCE CLASSNAME=\"X\">\n" + scalar("P", "1") + "\n" + scalar("p", "2"));
    EXPECT_NE(std::string::npos, message.find("line 3, column 1")) << message;

    // A long name is cut on a character boundary: the message stays short and valid UTF-8.
    std::string longName = "A";
    for (int i = 0; i < 100; ++i)
        longName += "\xE2\x82\xAC"; // three bytes each
    const std::string cut = refusal(instance(scalar(longName, "1") + scalar(longName, "2")));
    EXPECT_LT(cut.size(), 200u) << cut;
    EXPECT_NE(std::string::npos, cut.find("A\xE2\x82\xAC")) << cut;
    EXPECT_NE(std::string::npos, cut.find("\xE2\x82\xAC...\"")) << cut;
}

} // namespace
