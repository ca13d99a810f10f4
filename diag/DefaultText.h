// Default property texts that never overwrite: a property that already holds a text keeps it.
#ifndef DIAGCORE_DIAG_DEFAULTTEXT_H
#define DIAGCORE_DIAG_DEFAULTTEXT_H

#include "instance/InstanceImpl.h"

#include <initializer_list>
#include <utility>

namespace NQORVA20 {

inline void insertDefaults(InstanceImpl& instance,
                           std::initializer_list<std::pair<const char*, const char*>> defaults) {
    for (const auto& [name, text] : defaults)
        if (instance.find(name) == instance.end())
            instance[name] = text;
}

} // namespace NQORVA20

#endif
