// Named values in the order they were added, as method arguments and context entries keep
// them: adding a name that is already there (ignoring case) replaces its value in place.
// Values are copies owned by the list.
#ifndef DIAGHOST_BROKER_NAMEDVALUES_H
#define DIAGHOST_BROKER_NAMEDVALUES_H

#include <cmpidt.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace diaghost {

class Broker;

class NamedValues {
public:
    NamedValues() = default;
    NamedValues(const NamedValues&) = delete;
    NamedValues& operator=(const NamedValues&) = delete;
    ~NamedValues();

    // Answers the copy's error code, leaving the list unchanged on error.
    CMPIrc add(Broker& broker, const char* name, const CMPIValue* value, CMPIType type);
    // Copies every entry of other (which must differ from this list) to the end of this one.
    CMPIrc copyFrom(Broker& broker, const NamedValues& other);

    const CMPIData* find(std::string_view name) const;
    std::size_t size() const { return entries_.size(); }
    const std::string& nameAt(std::size_t index) const { return entries_[index].first; }
    const CMPIData& at(std::size_t index) const { return entries_[index].second; }

private:
    std::vector<std::pair<std::string, CMPIData>> entries_;
};

} // namespace diaghost

#endif
