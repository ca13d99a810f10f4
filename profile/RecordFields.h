// The records a run leaves, as the layer files them in a service's RecordLog: property texts by
// CIM property name, arrays joined by a separator no value holds, and the typed instances made
// from them for answers (the types are those of the DMTF record classes).
#ifndef DIAGPROFILE_RECORDFIELDS_H
#define DIAGPROFILE_RECORDFIELDS_H

#include "profile/CimObject.h"
#include "profile/RecordLog.h"

#include <map>
#include <string>
#include <vector>

namespace NQORVA20::profile {

class RecordFields {
public:
    using Fields = std::map<std::string, std::string>;

    static constexpr char separator = '\x1f';
    static std::string join(const std::vector<std::string>& values);
    static std::vector<std::string> split(const std::string& text);

    // A record of the given name with every field as a property of its DMTF type.
    static CimObject object(const ObjectName& name, const Fields& fields);
    // The InstanceID of the setting-data record of an entry.
    static std::string settingId(const RecordLog::Entry& entry);
};

} // namespace NQORVA20::profile

#endif
