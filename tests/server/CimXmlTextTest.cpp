// CIM-XML text: what any provider string becomes in an answer, and how the writer hands a long
// answer on in pieces.
#include "server/CimXmlWriter.h"
#include "server/XmlText.h"

#include "host/Host.h"
#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"

#include <cmpift.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using diagserver::CimXmlWriter;
using diagserver::XmlText;

std::string escaped(std::string_view text, bool attribute = false) {
    std::string out;
    XmlText::appendEscaped(out, text, attribute);
    return out;
}

TEST(CimXmlTextTest, MarkupBecomesEntitiesAndWhatXmlCannotCarryBecomesReplacementCharacters) {
    EXPECT_EQ("a &lt;b&gt; &amp; &quot;c&quot; 'd'", escaped("a <b> & \"c\" 'd'"));
    // Tab and line feed stay between tags; a carriage return is a reference, as a parser reads
    // a raw one as a line feed, and so are tab and line feed in an attribute value, which a
    // parser reads as spaces. Other control characters cannot be in XML 1.0.
    EXPECT_EQ("x\t\n&#13;y\xEF\xBF\xBDz", escaped(std::string("x\t\n\ry\x01z")));
    EXPECT_EQ("x&#9;&#10;&#13;y&quot;", escaped("x\t\n\ry\"", true));
    EXPECT_EQ("\xEF\xBF\xBD", escaped(std::string(1, '\0')));
    // Valid UTF-8 of every length stays; broken sequences do not survive.
    EXPECT_EQ("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80",
              escaped("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"));
    for (const std::string& bad : {std::string("\xC3"), std::string("\x80"),
                                   std::string("\xC0\xAF"), std::string("\xED\xA0\x80"),
                                   std::string("\xF4\x90\x80\x80"), std::string("\xEF\xBF\xBF")}) {
        SCOPED_TRACE(bad);
        EXPECT_FALSE(XmlText::isClean(bad));
        EXPECT_TRUE(XmlText::isClean(escaped(bad)));
    }
}

TEST(CimXmlTextTest, ThePlainPrefixEndsAtTheFirstByteThatNeedsEscapingWhereverItLies) {
    // The prefix is found sixteen bytes at a time: every byte value is tried at every place in
    // and around a block, after plain text and, between tags, after tabs (plain there, but below
    // printable).
    for (const bool attribute : {false, true}) {
        for (const char filler : {'a', '\t'}) {
            if (attribute && filler == '\t')
                continue;
            for (std::size_t at = 0; at < 40; ++at) {
                for (int b = 0; b < 256; ++b) {
                    std::string text(40, filler);
                    text[at] = static_cast<char>(b);
                    const bool plain =
                        (b >= 0x20 && b < 0x80 && b != '&' && b != '<' && b != '>' && b != '"') ||
                        (!attribute && (b == '\t' || b == '\n'));
                    ASSERT_EQ(plain ? text.size() : at, XmlText::plainPrefix(text, attribute))
                        << "byte " << b << " at " << at << (attribute ? " in an attribute" : "");
                }
            }
        }
    }
}

TEST(CimXmlTextTest, ALongAnswerReachesTheSinkInPiecesThatAddUpToIt) {
    std::string whole;
    int pieces = 0;
    CimXmlWriter writer(
        [&](std::string_view piece) {
            whole.append(piece);
            ++pieces;
        },
        1024);
    writer.beginMessage("42");
    writer.beginIMethodResponse("EnumerateClassNames");
    writer.beginIReturnValue();
    for (int i = 0; i < 500; ++i)
        writer.className("Class_" + std::to_string(i));
    writer.endIReturnValue();
    writer.endIMethodResponse();
    writer.endMessage();
    EXPECT_GT(pieces, 10);
    EXPECT_EQ(writer.written(), whole.size());
    EXPECT_EQ(0u, whole.find("<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<CIM CIMVERSION=\"2.0\" "
                             "DTDVERSION=\"2.0\"><MESSAGE ID=\"42\" PROTOCOLVERSION=\"1.0\">"
                             "<SIMPLERSP><IMETHODRESPONSE NAME=\"EnumerateClassNames\">"));
    EXPECT_NE(std::string::npos, whole.find("<CLASSNAME NAME=\"Class_499\"/></IRETURNVALUE>"));
    EXPECT_EQ(whole.size() - 1, whole.rfind("</SIMPLERSP></MESSAGE></CIM>\n") + 28);
}

TEST(CimXmlTextTest, ValuesTakeTheirCimXmlFormsAndAnEmbeddedInstanceIsEscapedText) {
    diaghost::Host host;
    host.loadMof(DIAGCORE_SOURCE_DIR "/mof/diagcore.mof");
    diaghost::CallScope scope(host.broker());
    const CMPIBroker* mb = host.broker().cmpi();
    CMPIObjectPath* op = mb->eft->newObjectPath(mb, "root/cimv2", "CIM_DiagnosticSetting", nullptr);
    CMPIInstance* inner = mb->eft->newInstance(mb, op, nullptr);
    inner->ft->setProperty(inner, "Caption", reinterpret_cast<const CMPIValue*>("<b>"), CMPI_chars);
    std::string out;
    CimXmlWriter writer([&](std::string_view piece) { out.append(piece); });
    CMPIValue v{};
    v.inst = inner;
    writer.paramValue("Embedded", CMPIData{CMPI_instance, CMPI_goodValue, v});
    v = CMPIValue{};
    v.boolean = 1;
    writer.paramValue("Flag", CMPIData{CMPI_boolean, CMPI_goodValue, v});
    // A real has its decimal point, as a CIM real literal must, and reads back as the same
    // number in its own precision.
    const std::pair<double, const char*> reals[] = {
        {-0.5, "-0.5"}, {3, "3.0"}, {1e20, "1.0e+20"}, {1.5e-7, "1.5e-07"}};
    for (const auto& [real, text] : reals) {
        v = CMPIValue{};
        v.real64 = real;
        writer.paramValue(text, CMPIData{CMPI_real64, CMPI_goodValue, v});
    }
    v = CMPIValue{};
    v.real32 = 0.1f;
    writer.paramValue("Single", CMPIData{CMPI_real32, CMPI_goodValue, v});
    writer.paramValue("Missing", CMPIData{CMPI_string, CMPI_nullValue, CMPIValue{}});
    writer.flush();
    EXPECT_NE(std::string::npos,
              out.find("<PARAMVALUE NAME=\"Embedded\" PARAMTYPE=\"string\" "
                       "EmbeddedObject=\"instance\"><VALUE>"
                       "&lt;INSTANCE CLASSNAME=&quot;CIM_DiagnosticSetting&quot;&gt;"))
        << out;
    EXPECT_NE(std::string::npos, out.find("&lt;VALUE&gt;&amp;lt;b&amp;gt;&lt;/VALUE&gt;")) << out;
    EXPECT_NE(std::string::npos,
              out.find("<PARAMVALUE NAME=\"Flag\" PARAMTYPE=\"boolean\"><VALUE>TRUE</VALUE>"));
    for (const auto& [real, text] : reals)
        EXPECT_NE(std::string::npos,
                  out.find(std::string("<PARAMVALUE NAME=\"") + text +
                           "\" PARAMTYPE=\"real64\"><VALUE>" + text + "</VALUE>"))
            << out;
    EXPECT_NE(std::string::npos,
              out.find("<PARAMVALUE NAME=\"Single\" PARAMTYPE=\"real32\"><VALUE>0.1</VALUE>"));
    EXPECT_NE(std::string::npos,
              out.find("<PARAMVALUE NAME=\"Missing\" PARAMTYPE=\"string\"></PARAMVALUE>"));

    // A string the class declares an embedded instance says so, that a client reads it as one.
    CMPIObjectPath* recordPath =
        mb->eft->newObjectPath(mb, "root/cimv2", "CIM_DiagnosticSettingDataRecord", nullptr);
    CMPIInstance* record = mb->eft->newInstance(mb, recordPath, nullptr);
    record->ft->setProperty(record, "Settings",
                            reinterpret_cast<const CMPIValue*>("<INSTANCE CLASSNAME=\"X\"/>"),
                            CMPI_chars);
    record->ft->setProperty(record, "Caption", reinterpret_cast<const CMPIValue*>("a\r\nb"),
                            CMPI_chars);
    out.clear();
    writer.instance(record, nullptr);
    writer.flush();
    EXPECT_NE(std::string::npos,
              out.find("<PROPERTY NAME=\"Settings\" TYPE=\"string\" EmbeddedObject=\"instance\">"
                       "<VALUE>&lt;INSTANCE CLASSNAME=&quot;X&quot;/&gt;</VALUE>"))
        << out;
    EXPECT_NE(std::string::npos,
              out.find("<PROPERTY NAME=\"Caption\" TYPE=\"string\"><VALUE>a&#13;\nb</VALUE>"))
        << out;
}

} // namespace
