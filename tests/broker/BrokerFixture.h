// Shared setup of the broker suites: a class repository with a small device hierarchy, a log
// sink and a broker of either dialect, plus helpers that read CMPI values back.
#ifndef DIAGCORE_TESTS_BROKER_BROKERFIXTURE_H
#define DIAGCORE_TESTS_BROKER_BROKERFIXTURE_H

#include "host/broker/Broker.h"
#include "host/broker/CallScope.h"
#include "host/broker/LogSink.h"
#include "host/mof/ClassRepository.h"

#include <cmpift.h>
#include <cmpimacs.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace diaghost::test {

inline CimProperty property(const std::string& name, CimTypeCode type, bool key = false) {
    CimProperty p;
    p.name = name;
    p.type = type;
    p.key = key;
    return p;
}

// Test_ManagedElement <- Test_LogicalDevice <- Test_Disk, plus Test_Record with one property of
// every scalar type and a few arrays, and Test_Link with a REF key.
inline void addTestClasses(ClassRepository& repo, const std::string& ns = "root/cimv2") {
    CimClass element;
    element.name = "Test_ManagedElement";
    element.properties = {property("Caption", CMPI_string)};
    repo.addClass(ns, element);

    CimClass device;
    device.name = "Test_LogicalDevice";
    device.superclass = "Test_ManagedElement";
    // Declared key order differs from the alphabetical one, and one key starts lower-case.
    device.properties = element.properties;
    device.properties.push_back(property("SystemName", CMPI_string, true));
    device.properties.push_back(property("CreationClassName", CMPI_string, true));
    device.properties.push_back(property("deviceID", CMPI_string, true));
    device.properties.push_back(property("Enabled", CMPI_boolean));
    repo.addClass(ns, device);

    CimClass disk;
    disk.name = "Test_Disk";
    disk.superclass = "Test_LogicalDevice";
    disk.properties = device.properties;
    disk.properties.push_back(property("BlockSize", CMPI_uint64));
    disk.properties.push_back(property("Labels", CMPI_stringA));
    CimProperty embedded = property("Detail", CMPI_string);
    embedded.qualifiers["embeddedinstance"] = "Test_Record";
    disk.properties.push_back(embedded);
    repo.addClass(ns, disk);

    CimClass record;
    record.name = "Test_Record";
    record.properties = {property("Id", CMPI_uint32, true), property("Flag", CMPI_boolean),
                         property("Letter", CMPI_char16),   property("Small", CMPI_sint8),
                         property("Count", CMPI_uint16),    property("Delta", CMPI_sint32),
                         property("Total", CMPI_sint64),    property("Ratio", CMPI_real32),
                         property("Mean", CMPI_real64),     property("Text", CMPI_string),
                         property("When", CMPI_dateTime),   property("Numbers", CMPI_uint16A),
                         property("Target", CMPI_ref),      property("Byte", CMPI_uint8),
                         property("Wide", CMPI_uint64)};
    repo.addClass(ns, record);

    CimClass link;
    link.name = "Test_Link";
    link.association = true;
    link.properties = {property("Antecedent", CMPI_ref, true),
                       property("Dependent", CMPI_ref, true)};
    repo.addClass(ns, link);
}

class BrokerFixture : public ::testing::Test {
protected:
    explicit BrokerFixture(PathDialect dialect = PathDialect::Pegasus) {
        addTestClasses(repo);
        broker = std::make_unique<Broker>(repo, log, dialect);
        mb = broker->cmpi();
    }

    // A broker of the other dialect over the same classes.
    std::unique_ptr<Broker> makeBroker(PathDialect dialect) {
        return std::make_unique<Broker>(repo, log, dialect);
    }

    CMPIObjectPath* path(const char* ns, const char* cls) {
        CMPIStatus rc{CMPI_RC_ERR_FAILED, nullptr};
        CMPIObjectPath* op = CMNewObjectPath(mb, ns, cls, &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_OK);
        return op;
    }

    CMPIInstance* instance(const char* cls, const char* ns = "root/cimv2") {
        CMPIStatus rc{CMPI_RC_ERR_FAILED, nullptr};
        CMPIInstance* inst = CMNewInstance(mb, path(ns, cls), &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_OK) << cls;
        return inst;
    }

    void setChars(const CMPIInstance* inst, const char* name, const char* text) {
        CMPIStatus rc = CMSetProperty(inst, name, text, CMPI_chars);
        ASSERT_EQ(rc.rc, CMPI_RC_OK) << name;
    }

    static std::string text(const CMPIString* s) {
        const char* p = s ? CMGetCharPtr(s) : nullptr;
        return p ? p : "<null>";
    }

    std::string pathText(const CMPIObjectPath* op) {
        CMPIStatus rc{CMPI_RC_ERR_FAILED, nullptr};
        std::string t = text(op->ft->toString(op, &rc));
        EXPECT_EQ(rc.rc, CMPI_RC_OK);
        return t;
    }

    static std::string stringProperty(const CMPIInstance* inst, const char* name) {
        CMPIData d = CMGetProperty(inst, name, nullptr);
        if (d.type != CMPI_string || (d.state & CMPI_nullValue))
            return "<not a set string>";
        return text(d.value.string);
    }

    ClassRepository repo;
    LogSink log;
    std::unique_ptr<Broker> broker;
    const CMPIBroker* mb = nullptr;
};

} // namespace diaghost::test

#endif
