// Delivers an instance the registry keeps as a copy of its own: the object manager may change
// an instance it is given (class origins, qualifiers, property filtering) and keep it, so a kept
// instance handed over would carry one request's changes into every later answer, and two
// requests could change it at once. The copy is released as soon as it is delivered.
#ifndef DIAGCORE_ENTRY_RESULTCOPY_H
#define DIAGCORE_ENTRY_RESULTCOPY_H

#include <cmpidt.h>

namespace NQORVA20 {

// False when the broker could not copy the instance (nothing was delivered); true otherwise,
// also when there is no usable result to deliver to.
bool ReturnInstanceCopy(const CMPIResult* result, const CMPIInstance* kept);

} // namespace NQORVA20

#endif
