// The uint32 values every ZORQ diagnostic test returns from RunDiagnostic. Both test families
// use the same four values, so a client reads a result the same way whatever it ran.
#ifndef ZORQ_PROVIDERS_COMMON_TESTOUTCOME_H
#define ZORQ_PROVIDERS_COMMON_TESTOUTCOME_H

namespace NQORVA20::providers {

enum TestOutcome : unsigned int {
    // Every check held; the record passed.
    TestPassed = 0,
    // The test ran and found a fault; the record carries its error code and details.
    TestFailed = 1,
    // "ManagedElement" names nothing the family published (wrong class, unknown or missing key,
    // a path of someone else's); nothing was touched.
    TestElementRefused = 2,
    // The element is ours but the test could not run on it (for example the write probe on a
    // read-only mount, or statistics the kernel does not offer).
    TestNotRun = 3,
    // The same value, for a test that did not finish within its deadline or was not started
    // because an earlier one is still stuck: "Timeout" in the DMTF's values of RunDiagnostic.
    TestTimedOut = 3,
};

} // namespace NQORVA20::providers

#endif
