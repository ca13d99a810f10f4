#include "tools/DiagnosticRun.h"

#include "host/Host.h"
#include "host/broker/CallScope.h"

#include <cmpift.h>

#include <set>

namespace NQORVA20::tools {

namespace {

std::set<std::string> pathTexts(diaghost::Host& host, const diaghost::OperationResult& records) {
    std::set<std::string> texts;
    for (const CMPIInstance* record : records.instances())
        texts.insert(host.pathText(record->ft->getObjectPath(record, nullptr)));
    return texts;
}

} // namespace

DiagnosticRun::DiagnosticRun(diaghost::Host& host, const CMPIObjectPath* servicePath,
                             const CMPIObjectPath* elementPath, const std::string& nameSpace) {
    diaghost::CallScope scope(host.broker());
    const std::set<std::string> before =
        pathTexts(host, host.enumerateInstances(nameSpace, recordClass));

    CMPIData element{};
    element.type = CMPI_ref;
    element.state = CMPI_goodValue;
    element.value.ref = const_cast<CMPIObjectPath*>(elementPath);
    const auto start = std::chrono::steady_clock::now();
    call_ = std::make_unique<diaghost::OperationResult>(
        host.invokeMethod(servicePath, "RunDiagnostic", {{"ManagedElement", element}}));
    elapsed_ = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
    if (!call_->ok())
        return;

    recordsAfter_ = std::make_unique<diaghost::OperationResult>(
        host.enumerateInstances(nameSpace, recordClass));
    for (const CMPIInstance* record : recordsAfter_->instances())
        if (!before.count(host.pathText(record->ft->getObjectPath(record, nullptr))))
            record_ = record;
}

} // namespace NQORVA20::tools
