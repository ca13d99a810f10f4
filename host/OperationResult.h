// What one client operation of the Host answered: its status and its own copies of everything the
// providers returned (instances, paths, data, errors) and, for a method, of the out arguments.
// The copies live as long as the result; a result must not outlive the Host that made it.
#ifndef DIAGHOST_OPERATIONRESULT_H
#define DIAGHOST_OPERATIONRESULT_H

#include "host/broker/OperationStatus.h"

#include <cmpidt.h>

#include <memory>
#include <string>
#include <vector>

namespace diaghost {

class Broker;
class ResultSink;

class OperationResult {
public:
    explicit OperationResult(Broker& broker);
    ~OperationResult();
    OperationResult(OperationResult&& other) noexcept;
    OperationResult& operator=(OperationResult&& other) noexcept;
    OperationResult(const OperationResult&) = delete;
    OperationResult& operator=(const OperationResult&) = delete;

    OperationStatus status;
    bool ok() const { return status.ok(); }

    const std::vector<CMPIInstance*>& instances() const;
    const std::vector<CMPIObjectPath*>& paths() const;
    const std::vector<CMPIData>& data() const;
    const std::vector<CMPIError*>& errors() const;
    // The first instance returned; null when none.
    const CMPIInstance* instance() const;
    // A method's return value: the first data returned; CMPI_null with CMPI_nullValue when none.
    CMPIData returnValue() const;
    // A method's out arguments; null for other operations.
    const CMPIArgs* outArgs() const { return outArgs_; }
    // One out argument; CMPI_null with CMPI_nullValue | CMPI_notFound when absent.
    CMPIData outArg(const std::string& name) const;

    // Where the operation's results land.
    ResultSink& sink() { return *sink_; }
    // Takes ownership of a clone of the out arguments.
    void adoptOutArgs(CMPIArgs* clone);

private:
    void releaseOutArgs();

    std::unique_ptr<ResultSink> sink_;
    CMPIArgs* outArgs_ = nullptr;
};

} // namespace diaghost

#endif
