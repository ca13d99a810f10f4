#include "profile/EditingResult.h"

#include "common/CmpiBoundary.h"

namespace NQORVA20::profile {

const CMPIResultFT EditingResult::table_ = {
    CMPICurrentVersion, release, clone, returnData, returnInstance, returnObjectPath, returnDone,
#ifdef CMPI_VER_200
    returnError,
#endif
};

EditingResult::EditingResult(const CMPIResult* target, Edit edit) noexcept
    : target_(target), edit_(edit) {
    own_.hdl = this;
    own_.ft = const_cast<CMPIResultFT*>(&table_);
}

const CMPIResult* EditingResult::result() const noexcept {
    return CmpiBoundary::usable(target_) ? &own_ : nullptr;
}

const EditingResult* EditingResult::self(const CMPIResult* result) {
    return static_cast<const EditingResult*>(result->hdl);
}

CMPIStatus EditingResult::release(CMPIResult*) {
    // Owned by the caller's frame.
    return CmpiBoundary::status(CMPI_RC_OK);
}

CMPIResult* EditingResult::clone(const CMPIResult*, CMPIStatus* rc) {
    // A copy could outlive the frame that owns this one.
    if (rc != nullptr)
        *rc = CmpiBoundary::status(CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

CMPIStatus EditingResult::returnData(const CMPIResult* result, const CMPIValue* value,
                                     CMPIType type) {
    const CMPIResult* target = self(result)->target_;
    return target->ft->returnData(target, value, type);
}

CMPIStatus EditingResult::returnInstance(const CMPIResult* result, const CMPIInstance* instance) {
    const EditingResult& me = *self(result);
    const CMPIResult* target = me.target_;
    if (!CmpiBoundary::usable(instance))
        return target->ft->returnInstance(target, instance);
    CMPIInstance* copy = instance->ft->clone(instance, nullptr);
    if (copy == nullptr)
        return CmpiBoundary::status(CMPI_RC_ERR_FAILED);
    me.edit_(copy);
    const CMPIStatus s = target->ft->returnInstance(target, copy);
    CmpiBoundary::release(copy);
    return s;
}

CMPIStatus EditingResult::returnObjectPath(const CMPIResult* result, const CMPIObjectPath* path) {
    const CMPIResult* target = self(result)->target_;
    return target->ft->returnObjectPath(target, path);
}

CMPIStatus EditingResult::returnDone(const CMPIResult* result) {
    const CMPIResult* target = self(result)->target_;
    return target->ft->returnDone(target);
}

#ifdef CMPI_VER_200
CMPIStatus EditingResult::returnError(const CMPIResult* result, const CMPIError* error) {
    const CMPIResult* target = self(result)->target_;
    if (target->ft->ftVersion < 200 || target->ft->returnError == nullptr)
        return CmpiBoundary::status(CMPI_RC_ERR_NOT_SUPPORTED);
    return target->ft->returnError(target, error);
}
#endif

} // namespace NQORVA20::profile
