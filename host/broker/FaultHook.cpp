#include "host/broker/FaultHook.h"

namespace diaghost {

const char* FaultHook::name(Function f) {
    switch (f) {
    case Function::NewInstance:
        return "newInstance";
    case Function::NewObjectPath:
        return "newObjectPath";
    case Function::NewString:
        return "newString";
    case Function::NewArray:
        return "newArray";
    case Function::GetProperty:
        return "getProperty";
    case Function::EnumerateInstances:
        return "enumerateInstances";
    case Function::Clone:
        return "clone";
    }
    return "?";
}

} // namespace diaghost
