#include "host/broker/HostError.h"

#include "host/broker/CmpiCall.h"
#include "host/broker/HostArray.h"
#include "host/broker/HostString.h"

#include <memory>

namespace diaghost {

namespace {

using Fields = HostError::Fields;
using Text = std::optional<std::string> Fields::*;

HostError* checked(const CMPIError* er, CMPIStatus* rc) {
    HostError* self = HostError::from(er);
    CmpiCall::set(rc, self ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_HANDLE);
    return self;
}

CMPIString* getText(const CMPIError* er, CMPIStatus* rc, Text field) {
    return CmpiCall::guard(rc, static_cast<CMPIString*>(nullptr), [&]() -> CMPIString* {
        HostError* self = checked(er, rc);
        if (!self)
            return nullptr;
        const std::optional<std::string>& text = self->fields().*field;
        if (!text) {
            CmpiCall::set(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
            return nullptr;
        }
        return HostString::make(self->broker(), text->c_str(), text->size(),
                                HostObject::Placement::Scope);
    });
}

CMPIStatus setText(CMPIError* er, const char* text, Text field) {
    return CmpiCall::guardStatus([&] {
        HostError* self = HostError::from(er);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        if (text)
            self->fields().*field = std::string(text);
        else
            (self->fields().*field).reset();
        return CmpiCall::status(CMPI_RC_OK);
    });
}

CMPIArray* getArray(const CMPIError* er, CMPIStatus* rc, bool actions) {
    return CmpiCall::guard(rc, static_cast<CMPIArray*>(nullptr), [&]() -> CMPIArray* {
        HostError* self = checked(er, rc);
        if (!self)
            return nullptr;
        HostArray* a = actions ? self->recommendedActions() : self->messageArguments();
        if (!a) {
            CmpiCall::set(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
            return nullptr;
        }
        std::unique_ptr<HostObject> copy(a->copy());
        copy->place(HostObject::Placement::Scope);
        return static_cast<HostArray*>(copy.release())->cmpi();
    });
}

CMPIStatus setArray(CMPIError* er, const CMPIArray* value, bool actions) {
    return CmpiCall::guardStatus([&] {
        HostError* self = HostError::from(er);
        if (!self)
            return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
        HostArray* copy = nullptr;
        if (value) {
            HostArray* a = HostArray::from(value);
            if (!a)
                return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
            if (a->elementType() != CMPI_string)
                return CmpiCall::status(CMPI_RC_ERR_TYPE_MISMATCH);
            copy = static_cast<HostArray*>(a->copy());
        }
        if (actions)
            self->setRecommendedActions(copy);
        else
            self->setMessageArguments(copy);
        return CmpiCall::status(CMPI_RC_OK);
    });
}

CMPIError* errorClone(const CMPIError* er, CMPIStatus* rc) {
    return CmpiCall::guard(rc, static_cast<CMPIError*>(nullptr), [&]() -> CMPIError* {
        HostError* self = checked(er, rc);
        return self ? CmpiCall::durableCopy(*self)->cmpi() : nullptr;
    });
}

CMPIErrorType errorGetErrorType(const CMPIError* er, CMPIStatus* rc) {
    HostError* self = checked(er, rc);
    return self ? self->fields().errorType : UnknownErrorType;
}

CMPIString* errorGetOtherErrorType(const CMPIError* er, CMPIStatus* rc) {
    return getText(er, rc, &Fields::otherErrorType);
}

CMPIString* errorGetOwningEntity(const CMPIError* er, CMPIStatus* rc) {
    return getText(er, rc, &Fields::owningEntity);
}

CMPIString* errorGetMessageID(const CMPIError* er, CMPIStatus* rc) {
    return getText(er, rc, &Fields::messageId);
}

CMPIString* errorGetMessage(const CMPIError* er, CMPIStatus* rc) {
    return getText(er, rc, &Fields::message);
}

CMPIErrorSeverity errorGetPerceivedSeverity(const CMPIError* er, CMPIStatus* rc) {
    HostError* self = checked(er, rc);
    return self ? self->fields().severity : ErrorSevUnknown;
}

CMPIErrorProbableCause errorGetProbableCause(const CMPIError* er, CMPIStatus* rc) {
    HostError* self = checked(er, rc);
    return self ? self->fields().probableCause : ErrorProbCauseUnknown;
}

CMPIString* errorGetProbableCauseDescription(const CMPIError* er, CMPIStatus* rc) {
    return getText(er, rc, &Fields::probableCauseDescription);
}

CMPIArray* errorGetRecommendedActions(const CMPIError* er, CMPIStatus* rc) {
    return getArray(er, rc, true);
}

CMPIString* errorGetErrorSource(const CMPIError* er, CMPIStatus* rc) {
    return getText(er, rc, &Fields::errorSource);
}

CMPIErrorSrcFormat errorGetErrorSourceFormat(const CMPIError* er, CMPIStatus* rc) {
    HostError* self = checked(er, rc);
    return self ? self->fields().errorSourceFormat : CMPIErrSrcUnknown;
}

CMPIString* errorGetOtherErrorSourceFormat(const CMPIError* er, CMPIStatus* rc) {
    return getText(er, rc, &Fields::otherErrorSourceFormat);
}

CMPIrc errorGetCIMStatusCode(const CMPIError* er, CMPIStatus* rc) {
    HostError* self = checked(er, rc);
    return self ? self->fields().statusCode : CMPI_RC_ERR_FAILED;
}

CMPIString* errorGetCIMStatusCodeDescription(const CMPIError* er, CMPIStatus* rc) {
    return getText(er, rc, &Fields::statusCodeDescription);
}

CMPIArray* errorGetMessageArguments(const CMPIError* er, CMPIStatus* rc) {
    return getArray(er, rc, false);
}

CMPIStatus errorSetErrorType(CMPIError* er, const CMPIErrorType et) {
    HostError* self = HostError::from(er);
    if (!self)
        return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
    self->fields().errorType = et;
    return CmpiCall::status(CMPI_RC_OK);
}

CMPIStatus errorSetOtherErrorType(CMPIError* er, const char* ot) {
    return setText(er, ot, &Fields::otherErrorType);
}

CMPIStatus errorSetProbableCauseDescription(CMPIError* er, const char* pcd) {
    return setText(er, pcd, &Fields::probableCauseDescription);
}

CMPIStatus errorSetRecommendedActions(CMPIError* er, const CMPIArray* ra) {
    return setArray(er, ra, true);
}

CMPIStatus errorSetErrorSource(CMPIError* er, const char* es) {
    return setText(er, es, &Fields::errorSource);
}

CMPIStatus errorSetErrorSourceFormat(CMPIError* er, const CMPIErrorSrcFormat esf) {
    HostError* self = HostError::from(er);
    if (!self)
        return CmpiCall::status(CMPI_RC_ERR_INVALID_HANDLE);
    self->fields().errorSourceFormat = esf;
    return CmpiCall::status(CMPI_RC_OK);
}

CMPIStatus errorSetOtherErrorSourceFormat(CMPIError* er, const char* oesf) {
    return setText(er, oesf, &Fields::otherErrorSourceFormat);
}

CMPIStatus errorSetCIMStatusCodeDescription(CMPIError* er, const char* cd) {
    return setText(er, cd, &Fields::statusCodeDescription);
}

CMPIStatus errorSetMessageArguments(CMPIError* er, CMPIArray* values) {
    return setArray(er, values, false);
}

CMPIErrorFT errorTable = {CMPIVersion200,
                          CmpiCall::release<HostError, CMPIError>,
                          errorClone,
                          errorGetErrorType,
                          errorGetOtherErrorType,
                          errorGetOwningEntity,
                          errorGetMessageID,
                          errorGetMessage,
                          errorGetPerceivedSeverity,
                          errorGetProbableCause,
                          errorGetProbableCauseDescription,
                          errorGetRecommendedActions,
                          errorGetErrorSource,
                          errorGetErrorSourceFormat,
                          errorGetOtherErrorSourceFormat,
                          errorGetCIMStatusCode,
                          errorGetCIMStatusCodeDescription,
                          errorGetMessageArguments,
                          errorSetErrorType,
                          errorSetOtherErrorType,
                          errorSetProbableCauseDescription,
                          errorSetRecommendedActions,
                          errorSetErrorSource,
                          errorSetErrorSourceFormat,
                          errorSetOtherErrorSourceFormat,
                          errorSetCIMStatusCodeDescription,
                          errorSetMessageArguments};

} // namespace

HostError::HostError(Broker& broker, Fields fields)
    : HostObject(Kind::Error, broker), cmpi_{this, &errorTable}, fields_(std::move(fields)) {}

HostError::~HostError() {
    delete recommendedActions_;
    delete messageArguments_;
}

HostError* HostError::create(Broker& broker, Fields fields) {
    return new HostError(broker, std::move(fields));
}

HostError* HostError::from(const CMPIError* er) {
    if (!er || er->ft != &errorTable)
        return nullptr;
    return static_cast<HostError*>(er->hdl);
}

CMPIErrorFT* HostError::table() {
    return &errorTable;
}

void HostError::setRecommendedActions(HostArray* copy) {
    if (copy)
        copy->place(Placement::Parent);
    delete recommendedActions_;
    recommendedActions_ = copy;
}

void HostError::setMessageArguments(HostArray* copy) {
    if (copy)
        copy->place(Placement::Parent);
    delete messageArguments_;
    messageArguments_ = copy;
}

HostObject* HostError::copy() const {
    std::unique_ptr<HostError> out(new HostError(broker(), fields_));
    if (recommendedActions_)
        out->setRecommendedActions(static_cast<HostArray*>(recommendedActions_->copy()));
    if (messageArguments_)
        out->setMessageArguments(static_cast<HostArray*>(messageArguments_->copy()));
    return out.release();
}

} // namespace diaghost
