// Named string constants shared by every module; the core itself uses only the namespace in
// which it publishes its instances.
#ifndef DIAGCORE_COMMON_CONSTANTS_H
#define DIAGCORE_COMMON_CONSTANTS_H

namespace NQORVA20 {

// The CIM namespace of every object path the core makes.
inline constexpr char cimNameSpace[] = "root/cimv2";

} // namespace NQORVA20

using NQORVA20::cimNameSpace;

#endif
