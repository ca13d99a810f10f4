// What the fuzz targets share: an embedded broker over a small class set that declares every
// property type the core converts, alive for the whole run, and a way to keep the core's
// standard-output trace lines out of the fuzzer's output.
#ifndef DIAGCORE_FUZZ_FUZZSUPPORT_H
#define DIAGCORE_FUZZ_FUZZSUPPORT_H

#include "host/broker/Broker.h"
#include "host/broker/LogSink.h"
#include "host/mof/ClassRepository.h"
#include "host/text/PathDialect.h"

#include <cmpift.h>

#include <cstdio>
#include <memory>
#include <string>

namespace fuzzsupport {

inline const char* typesMof() {
    return R"MOF(
Qualifier Key : boolean = false, Scope(property, reference), Flavor(DisableOverride, ToSubclass);
Qualifier Association : boolean = false, Scope(association), Flavor(DisableOverride, ToSubclass);

class Fuzz_Element {
    [Key] string Name;
    [Key] uint32 Number;
    string Caption;
};
class Fuzz_Types {
    [Key] string Name;
    boolean B;
    uint8 U8;
    sint8 S8;
    uint16 U16;
    sint16 S16;
    uint32 U32;
    sint32 S32;
    uint64 U64;
    sint64 S64;
    real32 R32;
    real64 R64;
    string S;
    datetime DT;
    char16 C16;
    uint16 U16A[];
    sint64 S64A[];
    real64 R64A[];
    string SA[];
    boolean BA[];
    datetime DTA[];
    Fuzz_Element REF Element;
};
[Association] class Fuzz_Link {
    [Key] Fuzz_Element REF Left;
    [Key] Fuzz_Element REF Right;
};
)MOF";
}

struct FuzzBroker {
    diaghost::ClassRepository classes;
    diaghost::LogSink log{1024};
    std::unique_ptr<diaghost::Broker> broker;

    explicit FuzzBroker(diaghost::PathDialect dialect) {
        classes.loadText(typesMof());
        broker = std::make_unique<diaghost::Broker>(classes, log, dialect);
    }
};

// One broker per object-path dialect for the whole run.
inline FuzzBroker& fuzzBroker(diaghost::PathDialect dialect) {
    static FuzzBroker* pegasus = new FuzzBroker(diaghost::PathDialect::Pegasus);
    static FuzzBroker* sfcb = new FuzzBroker(diaghost::PathDialect::Sfcb);
    return dialect == diaghost::PathDialect::Sfcb ? *sfcb : *pegasus;
}

// The core prints a few trace lines (unsupported property types, definitions) on standard
// output; at fuzzing speed they would drown libFuzzer's own report, which goes to standard error.
inline void silenceStandardOutput() {
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        std::perror("freopen /dev/null");
}

} // namespace fuzzsupport

#endif
