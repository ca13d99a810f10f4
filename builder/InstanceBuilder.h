// Turns the core's text-based instance objects into CMPIInstances made by the broker. The types
// come from the class: the builder asks a fresh instance of the class for each property's
// declared type and converts the property value text to it. What it makes belongs to the
// broker's call context; the builder releases nothing and keeps nothing.
//
// Property value text: numbers in decimal; the 8-bit types read one character and take its
// code; booleans as 0 or 1; references as object-path text; date-times as the 25-character CIM
// text (empty: now); arrays as element texts separated by ",", empty elements dropped.
#ifndef DIAGCORE_BUILDER_INSTANCEBUILDER_H
#define DIAGCORE_BUILDER_INSTANCEBUILDER_H

#include "common/Export.h"
#include "instance/InstanceImpl.h"

#include <cmpidt.h>

#include <string>
#include <vector>

namespace NQORVA20 {

// Reads one value of T from the text with the standard formatted extraction (decimal, leading
// white space skipped); the 8-bit types read a single character. A text that cannot be read
// yields 0 (false). Instantiated for unsigned char, signed char, unsigned short, short,
// unsigned int, int, unsigned long, long, float, double and bool.
template <typename T>
DIAGCORE_EXPORT T stringToDataType(std::string text);

// Splits the text at every separator; empty elements are dropped, blanks kept.
DIAGCORE_EXPORT std::vector<std::string> multiStringTok(std::string& text, char separator);

// A scratch instance object the builder fills from an object-path text.
class DIAGCORE_EXPORT ParseInstanceImpl : public InstanceImpl {
public:
    ParseInstanceImpl();
    ~ParseInstanceImpl() override;
    void init() override;
};

class DIAGCORE_EXPORT InstanceBuilder {
public:
    explicit InstanceBuilder(std::string nameSpace);
    virtual ~InstanceBuilder();

    void printNS();

    // Builds an instance of className in the builder's namespace from the instance object's
    // properties; properties the class does not declare are dropped. Null when the broker
    // cannot make the path or the instance.
    CMPIInstance* build(const CMPIBroker* broker, const CMPIContext* ctx, std::string className,
                        InstanceImpl& instance);
    // Builds from "Name=value;Name=value" definitions in the given namespace.
    CMPIInstance* build(const CMPIBroker* broker, const CMPIContext* ctx,
                        const std::string& className, std::string& nameSpace,
                        std::string& definitions);
    // Builds the instance an object-path text names, in the builder's namespace.
    CMPIInstance* build(const CMPIBroker* broker, const CMPIContext* ctx, std::string& text);

    // The typed value of a property value text for a declared CMPI type. Unsupported types print
    // a line on standard output and give a zero value.
    CMPIValue convert(const CMPIBroker* broker, const CMPIContext* ctx, unsigned short& type,
                      std::string& text);

private:
    std::string nameSpace_;
    std::string unused_;
};

} // namespace NQORVA20

#endif
