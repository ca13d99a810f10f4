#include "profile/EmbeddedInstanceWriter.h"

namespace NQORVA20::profile {

EmbeddedInstanceWriter::EmbeddedInstanceWriter(std::string_view className) {
    text_ = "<INSTANCE CLASSNAME=\"";
    escaped(className);
    text_ += "\">";
}

void EmbeddedInstanceWriter::escaped(std::string_view value) {
    for (char c : value) {
        switch (c) {
        case '&':
            text_ += "&amp;";
            break;
        case '<':
            text_ += "&lt;";
            break;
        case '>':
            text_ += "&gt;";
            break;
        case '"':
            text_ += "&quot;";
            break;
        // As references, so that a reader's line-end and attribute normalisation leaves them
        // as they were.
        case '\t':
            text_ += "&#9;";
            break;
        case '\n':
            text_ += "&#10;";
            break;
        case '\r':
            text_ += "&#13;";
            break;
        default:
            // Control characters XML cannot carry become spaces.
            text_ += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
        }
    }
}

EmbeddedInstanceWriter& EmbeddedInstanceWriter::property(std::string_view name,
                                                         std::string_view type,
                                                         std::string_view value) {
    text_ += "<PROPERTY NAME=\"";
    escaped(name);
    text_ += "\" TYPE=\"";
    escaped(type);
    text_ += "\"><VALUE>";
    escaped(value);
    text_ += "</VALUE></PROPERTY>";
    return *this;
}

EmbeddedInstanceWriter& EmbeddedInstanceWriter::array(std::string_view name, std::string_view type,
                                                      const std::vector<std::string>& values) {
    text_ += "<PROPERTY.ARRAY NAME=\"";
    escaped(name);
    text_ += "\" TYPE=\"";
    escaped(type);
    text_ += "\"><VALUE.ARRAY>";
    for (const std::string& value : values) {
        text_ += "<VALUE>";
        escaped(value);
        text_ += "</VALUE>";
    }
    text_ += "</VALUE.ARRAY></PROPERTY.ARRAY>";
    return *this;
}

} // namespace NQORVA20::profile
