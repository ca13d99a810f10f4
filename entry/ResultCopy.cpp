#include "entry/ResultCopy.h"

#include <cmpift.h>

namespace NQORVA20 {

bool ReturnInstanceCopy(const CMPIResult* result, const CMPIInstance* kept) {
    if (result == nullptr || result->ft == nullptr)
        return true;
    if (kept == nullptr || kept->ft == nullptr)
        return false;
    CMPIInstance* copy = kept->ft->clone(kept, nullptr);
    if (copy == nullptr || copy->ft == nullptr)
        return false;
    result->ft->returnInstance(result, copy);
    copy->ft->release(copy);
    return true;
}

} // namespace NQORVA20
