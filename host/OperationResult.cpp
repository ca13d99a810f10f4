#include "host/OperationResult.h"

#include "host/broker/ResultSink.h"

#include <cmpift.h>

namespace diaghost {

namespace {

CMPIData nullData(CMPIValueState extra = 0) {
    CMPIData d{};
    d.type = CMPI_null;
    d.state = static_cast<CMPIValueState>(CMPI_nullValue | extra);
    return d;
}

} // namespace

OperationResult::OperationResult(Broker& broker) : sink_(std::make_unique<ResultSink>(broker)) {}

OperationResult::~OperationResult() {
    releaseOutArgs();
}

OperationResult::OperationResult(OperationResult&& other) noexcept
    : status(std::move(other.status)), sink_(std::move(other.sink_)), outArgs_(other.outArgs_) {
    other.outArgs_ = nullptr;
}

OperationResult& OperationResult::operator=(OperationResult&& other) noexcept {
    if (this != &other) {
        releaseOutArgs();
        status = std::move(other.status);
        sink_ = std::move(other.sink_);
        outArgs_ = other.outArgs_;
        other.outArgs_ = nullptr;
    }
    return *this;
}

void OperationResult::releaseOutArgs() {
    if (outArgs_ && outArgs_->ft)
        outArgs_->ft->release(outArgs_);
    outArgs_ = nullptr;
}

void OperationResult::adoptOutArgs(CMPIArgs* clone) {
    releaseOutArgs();
    outArgs_ = clone;
}

const std::vector<CMPIInstance*>& OperationResult::instances() const {
    return sink_->instances();
}

const std::vector<CMPIObjectPath*>& OperationResult::paths() const {
    return sink_->paths();
}

const std::vector<CMPIData>& OperationResult::data() const {
    return sink_->data();
}

const std::vector<CMPIError*>& OperationResult::errors() const {
    return sink_->errors();
}

const CMPIInstance* OperationResult::instance() const {
    return sink_->instances().empty() ? nullptr : sink_->instances().front();
}

CMPIData OperationResult::returnValue() const {
    return sink_->data().empty() ? nullData() : sink_->data().front();
}

CMPIData OperationResult::outArg(const std::string& name) const {
    if (!outArgs_ || !outArgs_->ft)
        return nullData(CMPI_notFound);
    CMPIStatus st{CMPI_RC_OK, nullptr};
    CMPIData d = outArgs_->ft->getArg(outArgs_, name.c_str(), &st);
    if (st.rc != CMPI_RC_OK)
        return nullData(CMPI_notFound);
    return d;
}

} // namespace diaghost
