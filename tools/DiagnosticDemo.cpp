#include "tools/DiagnosticDemo.h"

#include "host/Host.h"
#include "host/OperationResult.h"
#include "host/broker/CallScope.h"
#include "host/broker/CimValueMatch.h"
#include "host/broker/CimValueText.h"
#include "tools/DiagnosticRun.h"

#include <cmpift.h>

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <vector>

namespace NQORVA20::tools {

using diaghost::CimValueMatch;
using diaghost::CimValueText;

namespace {

struct Row {
    std::string service;
    std::string element;
    std::string result;
    std::string errorCode;
    std::string loops;
    std::string time;
};

std::string keyText(const CMPIObjectPath* path, const char* key) {
    CMPIStatus status{CMPI_RC_OK, nullptr};
    const CMPIData value = path->ft->getKey(path, key, &status);
    if (status.rc != CMPI_RC_OK || (value.state & (CMPI_nullValue | CMPI_notFound)))
        return {};
    return CimValueText::plainText(value);
}

// What a person calls the element: its device id, else its name, else its whole path.
std::string elementLabel(diaghost::Host& host, const CMPIObjectPath* element) {
    for (const char* key : {"DeviceID", "Name"}) {
        std::string text = keyText(element, key);
        if (!text.empty())
            return text;
    }
    return host.pathText(element);
}

std::string property(diaghost::Host& host, const CMPIInstance* instance, const char* name) {
    return instance ? host.propertyText(instance, name).value_or("") : "";
}

// Array properties read as "{a, b}"; the table shows their elements joined by commas.
std::string listText(std::string text) {
    if (text.size() >= 2 && text.front() == '{' && text.back() == '}')
        text = text.substr(1, text.size() - 2);
    return text;
}

std::string milliseconds(std::chrono::microseconds elapsed) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(1) << elapsed.count() / 1000.0 << " ms";
    return out.str();
}

void printTable(std::ostream& out, const std::vector<Row>& rows) {
    const std::vector<std::string> headings{"SERVICE",    "ELEMENT", "RESULT",
                                            "ERROR CODE", "LOOPS",   "TIME"};
    std::vector<std::size_t> widths;
    for (const std::string& heading : headings)
        widths.push_back(heading.size());
    auto cells = [](const Row& r) {
        return std::vector<std::string>{r.service,   r.element, r.result,
                                        r.errorCode, r.loops,   r.time};
    };
    for (const Row& row : rows) {
        const auto texts = cells(row);
        for (std::size_t i = 0; i < texts.size(); ++i)
            widths[i] = std::max(widths[i], texts[i].size());
    }
    auto line = [&](const std::vector<std::string>& texts) {
        for (std::size_t i = 0; i < texts.size(); ++i) {
            out << texts[i];
            if (i + 1 < texts.size())
                out << std::string(widths[i] - texts[i].size() + 2, ' ');
        }
        out << "\n";
    };
    line(headings);
    for (const Row& row : rows)
        line(cells(row));
}

} // namespace

DiagnosticDemo::DiagnosticDemo(diaghost::Host& host, std::string nameSpace, std::ostream& out,
                               std::ostream& err)
    : host_(host), nameSpace_(std::move(nameSpace)), out_(out), err_(err) {}

int DiagnosticDemo::run() {
    diaghost::CallScope scope(host_.broker());
    diaghost::OperationResult services =
        host_.enumerateInstances(nameSpace_, "CIM_DiagnosticService");
    if (!services.ok()) {
        err_ << "diagctl: " << diaghost::rcName(services.status.rc) << ": "
             << services.status.message << "\n";
        return 1;
    }
    diaghost::OperationResult available =
        host_.enumerateInstances(nameSpace_, "CIM_AvailableDiagnosticService");

    struct Plan {
        const CMPIInstance* service;
        std::vector<const CMPIObjectPath*> elements;
    };
    std::vector<Plan> plans;
    std::size_t runs = 0;
    out_ << "Diagnostic services in " << nameSpace_ << ":\n";
    for (const CMPIInstance* service : services.instances()) {
        const CMPIObjectPath* servicePath = service->ft->getObjectPath(service, nullptr);
        Plan plan{service, {}};
        for (const CMPIInstance* association : available.instances()) {
            const CMPIData provided =
                association->ft->getProperty(association, "ServiceProvided", nullptr);
            const CMPIData user =
                association->ft->getProperty(association, "UserOfService", nullptr);
            if (provided.type != CMPI_ref || user.type != CMPI_ref ||
                (provided.state & CMPI_nullValue) || (user.state & CMPI_nullValue) ||
                !CimValueMatch::samePath(provided.value.ref, servicePath))
                continue;
            plan.elements.push_back(user.value.ref);
        }
        out_ << "  " << property(host_, service, "Name") << " ("
             << property(host_, service, "Caption") << "): " << plan.elements.size() << " element"
             << (plan.elements.size() == 1 ? "" : "s") << "\n";
        for (const CMPIObjectPath* element : plan.elements)
            out_ << "    " << elementLabel(host_, element) << "\n";
        runs += plan.elements.size();
        plans.push_back(std::move(plan));
    }
    out_ << "\nRunning " << runs << " diagnostic" << (runs == 1 ? "" : "s") << ":\n";

    std::vector<Row> rows;
    bool everyRunCarriedOut = true;
    std::size_t index = 0;
    for (const Plan& plan : plans) {
        const std::string serviceName = property(host_, plan.service, "Name");
        const CMPIObjectPath* servicePath = plan.service->ft->getObjectPath(plan.service, nullptr);
        for (const CMPIObjectPath* element : plan.elements) {
            const std::string label = elementLabel(host_, element);
            DiagnosticRun run(host_, servicePath, element, nameSpace_);
            out_ << "[" << ++index << "/" << runs << "] " << serviceName << " on " << label << ": "
                 << milliseconds(run.elapsed()) << "\n";
            Row row{serviceName, label, "", "", "", milliseconds(run.elapsed())};
            if (!run.carriedOut()) {
                everyRunCarriedOut = false;
                row.result = std::string("not run (") + diaghost::rcName(run.status().rc) + ")";
                err_ << "diagctl: " << diaghost::rcName(run.status().rc) << ": "
                     << run.status().message << "\n";
            } else {
                const CMPIData value = run.returnValue();
                const bool passed = value.type == CMPI_uint32 && !(value.state & CMPI_nullValue) &&
                                    value.value.uint32 == 0;
                row.result = passed ? "passed" : "failed (" + CimValueText::plainText(value) + ")";
                row.errorCode = listText(property(host_, run.record(), "ErrorCode"));
                row.loops = property(host_, run.record(), "LoopsPassed") + " passed, " +
                            property(host_, run.record(), "LoopsFailed") + " failed";
            }
            rows.push_back(std::move(row));
        }
    }
    out_ << "\n";
    printTable(out_, rows);
    return everyRunCarriedOut ? 0 : 1;
}

} // namespace NQORVA20::tools
