// The network-port test family (libzorqnetdiag.so, provider ZORQ_NetDiagProvider): its CIM
// classes, its two services and the codes their records carry.
//
// Elements: the interfaces under /sys/class/net (or under the folder named by ZORQ_NET_SYSFS),
// published at start-up as ZORQ_NetworkPort with DeviceID = interface name. An interface whose
// key values hold a double quote or a backslash is not published; a warning names it.
//
// RunDiagnostic returns (see TestOutcome):
//   0  passed
//   1  failed: the record's ErrorCode says which check (several, comma-separated)
//   2  refused: the ManagedElement is not a ZORQ_NetworkPort this provider published
//      (ErrorCode NET_NOT_PUBLISHED); nothing was read
//   3  not run: the kernel does not offer what the test reads (NET_STATE_UNREADABLE,
//      NET_STATS_UNAVAILABLE), or a test stopped by an unexpected error (NET_TEST_ABORTED)
//
// NetworkPortLink: operstate "up" with carrier 1 passes, and so does "unknown" on a loopback
// interface; error codes NET_LINK_DOWN (any other state), NET_NO_CARRIER (up without carrier),
// NET_PORT_MISSING (the interface is gone).
//
// NetworkPortErrors: rx_errors + tx_errors must not exceed ZORQ_NET_MAX_ERRORS (default 0) and
// rx_dropped + tx_dropped must not exceed ZORQ_NET_MAX_DROPS (default unlimited), both read at
// every run; error codes NET_ERRORS, NET_DROPS, NET_PORT_MISSING.
#ifndef ZORQ_PROVIDERS_NETWORK_NETDIAG_H
#define ZORQ_PROVIDERS_NETWORK_NETDIAG_H

namespace NQORVA20::providers::netdiag {

inline constexpr char serviceClass[] = "ZORQ_NetDiagService";
inline constexpr char recordClass[] = "ZORQ_NetDiagRecord";
inline constexpr char settingClass[] = "ZORQ_NetDiagSettingData";
inline constexpr char capabilitiesClass[] = "ZORQ_NetDiagCapabilities";
inline constexpr char elementClass[] = "ZORQ_NetworkPort";
inline constexpr char availableClass[] = "ZORQ_NetAvailableDiagService";
inline constexpr char useOfLogClass[] = "ZORQ_NetUseOfLog";
inline constexpr char logClass[] = "ZORQ_NetDiagLog";
inline constexpr char systemClass[] = "ZORQ_ComputerSystem";

inline constexpr char linkServiceName[] = "NetworkPortLink";
inline constexpr char errorsServiceName[] = "NetworkPortErrors";

inline constexpr char notPublished[] = "NET_NOT_PUBLISHED";
inline constexpr char aborted[] = "NET_TEST_ABORTED";

} // namespace NQORVA20::providers::netdiag

#endif
