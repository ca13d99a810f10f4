// A CMPIResult to give the core in place of the object manager's, for answers whose instances
// the layer completes: each instance handed to it goes on as a copy with the edit applied;
// everything else passes through unchanged. It lives for one call, on the caller's stack.
#ifndef DIAGPROFILE_EDITINGRESULT_H
#define DIAGPROFILE_EDITINGRESULT_H

#include <cmpift.h>

namespace NQORVA20::profile {

class EditingResult {
public:
    // Changes a copy of an instance before it goes on.
    using Edit = void (*)(CMPIInstance*) noexcept;

    EditingResult(const CMPIResult* target, Edit edit) noexcept;
    EditingResult(const EditingResult&) = delete;
    EditingResult& operator=(const EditingResult&) = delete;

    // The result to hand to the core; null when there is no usable target.
    const CMPIResult* result() const noexcept;

private:
    static const EditingResult* self(const CMPIResult* result);
    static CMPIStatus release(CMPIResult* result);
    static CMPIResult* clone(const CMPIResult* result, CMPIStatus* rc);
    static CMPIStatus returnData(const CMPIResult* result, const CMPIValue* value, CMPIType type);
    static CMPIStatus returnInstance(const CMPIResult* result, const CMPIInstance* instance);
    static CMPIStatus returnObjectPath(const CMPIResult* result, const CMPIObjectPath* path);
    static CMPIStatus returnDone(const CMPIResult* result);
#ifdef CMPI_VER_200
    static CMPIStatus returnError(const CMPIResult* result, const CMPIError* error);
#endif
    static const CMPIResultFT table_;

    const CMPIResult* target_;
    Edit edit_;
    CMPIResult own_;
};

} // namespace NQORVA20::profile

#endif
