// The host's CMPIError: the properties of a CIM_Error a provider reports. Texts that were never
// set read as absent (null with CMPI_RC_ERR_NO_SUCH_PROPERTY); the two string arrays are
// copies owned by the error.
#ifndef DIAGHOST_BROKER_HOSTERROR_H
#define DIAGHOST_BROKER_HOSTERROR_H

#include "host/broker/HostObject.h"

#include <cmpift.h>

#include <optional>
#include <string>

namespace diaghost {

class HostArray;

class HostError final : public HostObject {
public:
    struct Fields {
        CMPIErrorType errorType = UnknownErrorType;
        std::optional<std::string> otherErrorType;
        std::optional<std::string> owningEntity;
        std::optional<std::string> messageId;
        std::optional<std::string> message;
        CMPIErrorSeverity severity = ErrorSevUnknown;
        CMPIErrorProbableCause probableCause = ErrorProbCauseUnknown;
        std::optional<std::string> probableCauseDescription;
        std::optional<std::string> errorSource;
        CMPIErrorSrcFormat errorSourceFormat = CMPIErrSrcUnknown;
        std::optional<std::string> otherErrorSourceFormat;
        CMPIrc statusCode = CMPI_RC_OK;
        std::optional<std::string> statusCodeDescription;
    };

    // Owned by nobody.
    static HostError* create(Broker& broker, Fields fields);
    static HostError* from(const CMPIError* er);
    static CMPIErrorFT* table();

    CMPIError* cmpi() { return &cmpi_; }
    Fields& fields() { return fields_; }
    const Fields& fields() const { return fields_; }
    // Null when not set; owned by the error.
    HostArray* recommendedActions() const { return recommendedActions_; }
    HostArray* messageArguments() const { return messageArguments_; }
    // Takes a copy of the array made for the error (or null to clear it).
    void setRecommendedActions(HostArray* copy);
    void setMessageArguments(HostArray* copy);

    HostObject* copy() const override;
    void* cmpiObject() override { return &cmpi_; }
    ~HostError() override;

private:
    HostError(Broker& broker, Fields fields);

    CMPIError cmpi_;
    Fields fields_;
    HostArray* recommendedActions_ = nullptr;
    HostArray* messageArguments_ = nullptr;
};

} // namespace diaghost

#endif
