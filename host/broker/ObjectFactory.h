// The broker's encapsulated-data function table: makes every encapsulated type (instances typed
// by the class repository), answers type questions about any of them, renders them as text,
// formats messages and writes log and trace lines into the broker's log sink.
#ifndef DIAGHOST_BROKER_OBJECTFACTORY_H
#define DIAGHOST_BROKER_OBJECTFACTORY_H

#include <cmpift.h>

#include <cstdarg>
#include <string>

namespace diaghost {

class ObjectFactory {
public:
    static CMPIBrokerEncFT* table();
    // defMsg with $0..$9 replaced by the texts of the count (type, value) inserts in args, as
    // CMFmtArgsN passes them; an insert of an unknown type ends the reading of inserts.
    static std::string formatMessage(const char* defMsg, CMPICount count, va_list args);
};

} // namespace diaghost

#endif
