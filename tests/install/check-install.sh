#!/usr/bin/env bash
# usage: check-install.sh BUILD_DIR SAMPLE_DIR CXX
set -euo pipefail
build="$1"; sample="$2"; cxx="$3"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

cmake --install "$build" --prefix "$prefix" >/dev/null
test -f "$prefix/include/diagcore/diag/DiagService.h"
test -f "$prefix/include/diagcore/cmpi/cmpift.h"
test -f "$prefix/share/diagcore/mof/diagcore.mof"
ls "$prefix"/lib*/libdiagcore.so.0 >/dev/null

# find_package(diagcore)
cmake -S "$sample" -B "$work/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
nm -D --defined-only "$work/cmake-build/libsampleprovider.so" | grep -q Sample_Provider_Create_MethodMI

# pkg-config
export PKG_CONFIG_PATH="$(dirname "$(ls -d "$prefix"/lib*/pkgconfig | head -1)")/pkgconfig"
"$cxx" -std=c++17 -shared -fPIC -o "$work/libsample-pc.so" "$sample/SampleProvider.cpp" \
  $(pkg-config --cflags --libs diagcore)
nm -D --defined-only "$work/libsample-pc.so" | grep -q Sample_Provider_Create_InstanceMI

# The installed diagctl finds the installed classes, registrations and providers on its own.
"$prefix/bin/diagctl" enum ZORQ_FSDiagService --names | grep -q 'Name="FileSystemHealth"'

# The Debian package carries the same files.
(cd "$build" && cpack -G DEB -B "$work/deb" >/dev/null)
contents="$(dpkg-deb -c "$work"/deb/libdiagcore_*.deb)"
for f in usr/bin/diagctl usr/include/diagcore/entry/DiagProvider.h libzorqfsdiag.so \
         share/diagcore/mof/registration/diagcore.reg; do
  grep -q "$f" <<<"$contents"
done
