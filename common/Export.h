// Marks the symbols that libdiagcore exports to provider libraries; everything else stays hidden.
#ifndef DIAGCORE_COMMON_EXPORT_H
#define DIAGCORE_COMMON_EXPORT_H

#define DIAGCORE_EXPORT __attribute__((visibility("default")))

#endif
