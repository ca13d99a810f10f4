// Writes one instance as the CIM-XML INSTANCE element a string property or parameter carries
// when it holds an embedded instance (the settings a run used, the CIM_Error of a failed job).
// Every value is escaped; the text is well-formed whatever the values hold.
#ifndef DIAGPROFILE_EMBEDDEDINSTANCEWRITER_H
#define DIAGPROFILE_EMBEDDEDINSTANCEWRITER_H

#include <string>
#include <string_view>
#include <vector>

namespace NQORVA20::profile {

class EmbeddedInstanceWriter {
public:
    explicit EmbeddedInstanceWriter(std::string_view className);

    // `type` is the CIM-XML type name: "string", "boolean", "uint16", "uint32", "datetime", ...
    EmbeddedInstanceWriter& property(std::string_view name, std::string_view type,
                                     std::string_view value);
    EmbeddedInstanceWriter& array(std::string_view name, std::string_view type,
                                  const std::vector<std::string>& values);

    std::string text() const { return text_ + "</INSTANCE>"; }

private:
    void escaped(std::string_view value);

    std::string text_;
};

} // namespace NQORVA20::profile

#endif
