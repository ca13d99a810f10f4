#include "entry/ResultCopy.h"

#include "common/CmpiBoundary.h"

#include <cmpift.h>

namespace NQORVA20 {

bool ReturnInstanceCopy(const CMPIResult* result, const CMPIInstance* kept) {
    if (!CmpiBoundary::usable(result))
        return true;
    if (!CmpiBoundary::usable(kept))
        return false;
    CMPIInstance* copy = kept->ft->clone(kept, nullptr);
    if (!CmpiBoundary::usable(copy))
        return false;
    result->ft->returnInstance(result, copy);
    CmpiBoundary::release(copy);
    return true;
}

} // namespace NQORVA20
