// The file-system test family (libzorqfsdiag.so, provider ZORQ_FSDiagProvider): its CIM
// classes, its two services and the codes their records carry.
//
// Elements: the mounted local file systems of /proc/self/mounts (or of the file named by
// ZORQ_FS_MOUNTS), published at start-up as ZORQ_LocalFileSystem with Name = mount point, from
// the table alone: start-up never waits on a mounted file system. A mount whose key values hold
// a double quote or a backslash is not published (an object path cannot carry them); a warning
// names it.
//
// RunDiagnostic returns (see TestOutcome):
//   0  passed
//   1  failed: the record's ErrorCode says which check (several, comma-separated)
//   2  refused: the ManagedElement is not a ZORQ_LocalFileSystem this provider published
//      (ErrorCode FS_NOT_PUBLISHED); nothing was opened
//   3  not run: FileSystemWriteProbe on a read-only or unwritable mount (FS_PROBE_SKIPPED), or
//      a test stopped by an unexpected error (FS_TEST_ABORTED); or timed out ("Timeout" in the
//      DMTF's values): the test did not finish within ZORQ_FS_TEST_TIMEOUT_SECONDS (default 10,
//      read at every run) and was abandoned (FS_TIMEOUT), or it was not started because an
//      abandoned test still waits on that mount (FS_MOUNT_STUCK)
//
// Both tests open the mount point itself, never a symbolic link in its place, and only while it
// stays on the device the first test found it on; otherwise they fail with FS_MOUNT_REPLACED
// and touch nothing.
//
// FileSystemHealth error codes: FS_UNREADABLE (the mount point cannot be opened or listed),
// FS_STATFS_FAILED, FS_LOW_SPACE, FS_LOW_INODES. Thresholds, read at every run:
// ZORQ_FS_MIN_FREE_PERCENT and ZORQ_FS_MIN_FREE_INODES_PERCENT (percent free, default 5).
// A read-only mount is reported in RecordData and is not a failure.
//
// FileSystemWriteProbe error codes: FS_PROBE_CREATE, FS_PROBE_WRITE, FS_PROBE_SYNC,
// FS_PROBE_READ, FS_PROBE_MISMATCH, FS_PROBE_REMOVE.
#ifndef ZORQ_PROVIDERS_FILESYSTEM_FSDIAG_H
#define ZORQ_PROVIDERS_FILESYSTEM_FSDIAG_H

namespace NQORVA20::providers::fsdiag {

inline constexpr char serviceClass[] = "ZORQ_FSDiagService";
inline constexpr char recordClass[] = "ZORQ_FSDiagRecord";
inline constexpr char settingClass[] = "ZORQ_FSDiagSettingData";
inline constexpr char capabilitiesClass[] = "ZORQ_FSDiagCapabilities";
inline constexpr char elementClass[] = "ZORQ_LocalFileSystem";
inline constexpr char availableClass[] = "ZORQ_FSAvailableDiagService";
inline constexpr char useOfLogClass[] = "ZORQ_FSUseOfLog";
inline constexpr char logClass[] = "ZORQ_FSDiagLog";
inline constexpr char systemClass[] = "ZORQ_ComputerSystem";

inline constexpr char healthServiceName[] = "FileSystemHealth";
inline constexpr char probeServiceName[] = "FileSystemWriteProbe";

inline constexpr char notPublished[] = "FS_NOT_PUBLISHED";
inline constexpr char aborted[] = "FS_TEST_ABORTED";
inline constexpr char timedOut[] = "FS_TIMEOUT";
inline constexpr char mountStuck[] = "FS_MOUNT_STUCK";
inline constexpr char mountReplaced[] = "FS_MOUNT_REPLACED";

} // namespace NQORVA20::providers::fsdiag

#endif
