// How diagctl prints what the object manager answered: MOF instance text and one path per line
// for people, or JSON documents for tools. Every value keeps its CIM type in JSON: integers and
// reals as numbers, booleans as true/false, strings, datetimes and references as strings, arrays
// as lists, NULL as null.
#ifndef DIAGCORE_TOOLS_OUTPUTFORMATTER_H
#define DIAGCORE_TOOLS_OUTPUTFORMATTER_H

#include <cmpidt.h>

#include <ostream>
#include <string>
#include <vector>

namespace diaghost {
class Host;
}

namespace NQORVA20::tools {

class OutputFormatter {
public:
    enum class Style { Mof, Json };

    OutputFormatter(diaghost::Host& host, Style style, std::ostream& out);

    void instances(const std::vector<CMPIInstance*>& instances);
    void paths(const std::vector<CMPIObjectPath*>& paths);
    void names(const std::vector<std::string>& names);
    // A method's outcome: its return value and the record it published, if one was found.
    void methodOutcome(const CMPIData& returnValue, const CMPIInstance* record);

    // A JSON string literal of the text (bytes above 0x7f are passed through as they are).
    static std::string jsonString(const std::string& text);
    // One CIM value as JSON.
    static std::string jsonValue(const CMPIData& data);

private:
    std::string jsonInstance(const CMPIInstance* instance);

    diaghost::Host& host_;
    Style style_;
    std::ostream& out_;
};

} // namespace NQORVA20::tools

#endif
