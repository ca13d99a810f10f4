#include "profile/RecordFields.h"

#include <strings.h>

namespace NQORVA20::profile {

namespace {

struct FieldType {
    const char* name;
    CMPIType type;
};

// The record properties that are not plain strings.
constexpr FieldType typed[] = {
    {"CompletionState", CMPI_uint16},     {"RecordType", CMPI_uint16},
    {"LoopsPassed", CMPI_uint32},         {"LoopsFailed", CMPI_uint32},
    {"CreationTimeStamp", CMPI_dateTime}, {"ExpirationDate", CMPI_dateTime},
    {"ErrorCode", CMPI_stringA},          {"ErrorCount", CMPI_uint32A},
};

CMPIType typeOf(const std::string& field) {
    for (const FieldType& t : typed)
        if (strcasecmp(t.name, field.c_str()) == 0)
            return t.type;
    return CMPI_string;
}

} // namespace

std::string RecordFields::join(const std::vector<std::string>& values) {
    std::string out;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i > 0)
            out += separator;
        out += values[i];
    }
    return out;
}

std::vector<std::string> RecordFields::split(const std::string& text) {
    std::vector<std::string> out;
    if (text.empty())
        return out;
    std::size_t from = 0;
    for (;;) {
        const std::size_t at = text.find(separator, from);
        out.push_back(text.substr(from, at == std::string::npos ? std::string::npos : at - from));
        if (at == std::string::npos)
            return out;
        from = at + 1;
    }
}

CimObject RecordFields::object(const ObjectName& name, const Fields& fields) {
    CimObject record(name);
    for (const auto& [field, text] : fields) {
        const CMPIType type = typeOf(field);
        if (type & CMPI_ARRAY)
            record.array(field, static_cast<CMPIType>(type & ~CMPI_ARRAY), split(text));
        else if (type == CMPI_uint16)
            record.uint16(field, static_cast<std::uint16_t>(std::stoul(text)));
        else if (type == CMPI_uint32)
            record.uint32(field, static_cast<std::uint32_t>(std::stoul(text)));
        else if (type == CMPI_dateTime)
            record.dateTime(field, text);
        else
            record.text(field, text);
    }
    return record;
}

std::string RecordFields::settingId(const RecordLog::Entry& entry) {
    auto it = entry.setting.find("InstanceID");
    return it != entry.setting.end() ? it->second : std::string();
}

} // namespace NQORVA20::profile
