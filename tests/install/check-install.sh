#!/usr/bin/env bash
# usage: check-install.sh build-against BUILD_DIR SAMPLE_DIR CXX
#        check-install.sh headers BUILD_DIR CXX [CLANGXX PYTHON]
#        check-install.sh deploy BUILD_DIR CONFIGURED_LIBDIR
# build-against: installs into a temporary prefix, builds a small out-of-tree provider against it
# through find_package(diagcore) and through pkg-config, and runs the installed diagctl.
# headers: compiles each installed header alone, warnings as errors, against the installed include
# folder and CMPI headers; then has clang list every function and static data member the headers
# declare and leave to the library, and checks that the installed libdiagcore.so exports each.
# Without CLANGXX or PYTHON only the first part runs, and the check ends as skipped (77).
# deploy: checks where the provider libraries find libdiagcore.so.0 once they are copied out of
# the install tree into an object manager's provider directory, and what the Debian package holds.
set -euo pipefail
mode="$1"
build="$(cd "$2" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"
providers=(libzorqcs.so libzorqfsdiag.so libzorqnetdiag.so)

fail() {
    echo "check-install: $*" >&2
    exit 1
}

runpath() {
    readelf -d "$1" | sed -n 's/.*(RUNPATH).*\[\(.*\)\]$/\1/p'
}

# The ldd output of a library as the object manager's process would see it: no LD_LIBRARY_PATH.
deps() {
    env -u LD_LIBRARY_PATH ldd "$1"
}

# From ldd output on stdin: the normalised path the loader found libdiagcore.so.0 at, or
# "not found".
core_path() {
    local line found
    line="$(grep 'libdiagcore\.so\.0 =>')" || fail "no libdiagcore.so.0 among the dependencies"
    found="$(sed -n 's/.*=> \(.*\) (0x.*/\1/p' <<<"$line")"
    if [[ -n "$found" ]]; then realpath -ms "$found"; else echo "not found"; fi
}

cmake --install "$build" --prefix "$prefix" >/dev/null
libdir="$(dirname "$(ls "$prefix"/lib*/libdiagcore.so.0)")"

if [[ "$mode" == build-against ]]; then
    sample="$3"; cxx="$4"
    test -f "$prefix/include/diagcore/diag/DiagService.h"
    test -f "$prefix/include/diagcore/cmpi/cmpift.h"
    test -f "$prefix/share/diagcore/mof/diagcore.mof"

    # find_package(diagcore)
    cmake -S "$sample" -B "$work/cmake-build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
      -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
    cmake --build "$work/cmake-build" >/dev/null
    nm -D --defined-only "$work/cmake-build/libsampleprovider.so" | grep Sample_Provider_Create_MethodMI >/dev/null

    # pkg-config
    export PKG_CONFIG_PATH="$libdir/pkgconfig"
    "$cxx" -std=c++17 -shared -fPIC -o "$work/libsample-pc.so" "$sample/SampleProvider.cpp" \
      $(pkg-config --cflags --libs diagcore)
    nm -D --defined-only "$work/libsample-pc.so" | grep Sample_Provider_Create_InstanceMI >/dev/null

    # The installed diagctl finds the installed classes, registrations and providers on its own.
    "$prefix/bin/diagctl" enum ZORQ_FSDiagService --names | grep 'Name="FileSystemHealth"' >/dev/null
    exit 0
fi

if [[ "$mode" == headers ]]; then
    cxx="$3"; clangxx="${4:-}"; python="${5:-}"
    include="$prefix/include/diagcore"
    export PKG_CONFIG_PATH="$libdir/pkgconfig"
    read -ra cflags <<<"$(pkg-config --cflags diagcore)"
    mapfile -t headers < <(cd "$include" && find . -path ./cmpi -prune -o -name '*.h' -print |
        sed 's|^\./||' | sort)
    ((${#headers[@]} > 0)) || fail "no headers installed under $include"

    mkdir "$work/alone"
    for header in "${headers[@]}"; do
        unit="$work/alone/${header//\//_}.cpp"
        printf '#include "%s"\n' "$header" >"$unit"
        "$cxx" -std=c++17 -Wall -Wextra -Werror "${cflags[@]}" -c "$unit" -o "${unit%.cpp}.o" ||
            fail "$header does not compile on its own"
    done

    if [[ -z "$clangxx" || -z "$python" ]]; then
        echo "check-install: not checked: the exports (needs clang++ and python3)"
        exit 77
    fi
    printf '#include "%s"\n' "${headers[@]}" >"$work/all.cpp"
    "$clangxx" -std=c++17 -fsyntax-only "${cflags[@]}" -Xclang -ast-dump=json "$work/all.cpp" \
        >"$work/ast.json"
    "$python" "$(dirname "$0")/library-declarations.py" "$include" "$include/cmpi" \
        <"$work/ast.json" >"$work/declared"
    [[ -s "$work/declared" ]] || fail "clang found nothing the headers declare"
    nm -D --defined-only "$libdir/libdiagcore.so.0" | awk '{ print $NF }' >"$work/exported"
    missing="$(awk -F '\t' 'NR == FNR { exported[$1] = 1; next } !($1 in exported)' \
        "$work/exported" "$work/declared")"
    if [[ -n "$missing" ]]; then
        c++filt <<<"$missing" >&2
        fail "libdiagcore.so does not export what the installed headers above declare"
    fi
    exit 0
fi

[[ "$mode" == deploy ]] || fail "unknown mode $mode"
configured="$3"
local_runpath='$ORIGIN:$ORIGIN/../..'

# Installed under a prefix other than the configured one, a provider looks only beside itself and
# in the install tree's library directory; nothing names the build tree.
for p in "${providers[@]}"; do
    [[ "$(runpath "$libdir/diagcore/providers/$p")" == "$local_runpath" ]] ||
        fail "$p installed under $prefix has RUNPATH $(runpath "$libdir/diagcore/providers/$p")"
    [[ "$(deps "$libdir/diagcore/providers/$p" | core_path)" == "$libdir/libdiagcore.so.0" ]] ||
        fail "$p in the install tree does not find $libdir/libdiagcore.so.0"
done

# Copied alone into a fresh provider directory, neither from the install tree nor from the build
# tree may it reach back into either of them.
mkdir "$work/alone" "$work/alone-from-build"
cp "$libdir/diagcore/providers/libzorqfsdiag.so" "$work/alone/"
cp "$build/providers/libzorqfsdiag.so" "$work/alone-from-build/"
for copy in "$work/alone/libzorqfsdiag.so" "$work/alone-from-build/libzorqfsdiag.so"; do
    found="$(deps "$copy" | core_path)"
    [[ "$found" != "$build"/* && "$found" != "$work"/* ]] || fail "$copy finds the core at $found"
done

# The documented step: libdiagcore.so.0 copied beside the providers. Every dependency resolves,
# the core from the provider directory, and the providers load and serve from there.
mkdir "$work/providerdir"
cp "${providers[@]/#/$libdir/diagcore/providers/}" "$work/providerdir/"
cp -L "$libdir/libdiagcore.so.0" "$work/providerdir/"
for p in "${providers[@]}"; do
    [[ "$(deps "$work/providerdir/$p")" != *"not found"* ]] ||
        fail "$p in a provider directory has unresolved libraries"
    [[ "$(deps "$work/providerdir/$p" | core_path)" == "$work/providerdir/libdiagcore.so.0" ]] ||
        fail "$p in a provider directory does not find the core beside it"
done
env -u LD_LIBRARY_PATH "$prefix/bin/diagctl" --providers "$work/providerdir" \
    enum ZORQ_FSDiagService --names | grep 'Name="FileSystemHealth"' >/dev/null ||
    fail "diagctl cannot serve from the provider directory"

# Installed under the configured prefix (here staged with DESTDIR), a provider also names that
# prefix's library directory, unless the loader searches it anyway.
DESTDIR="$work/stage" cmake --install "$build" >/dev/null
staged="$work/stage$configured/diagcore/providers/libzorqfsdiag.so"
case "$configured" in
    /lib | /lib64 | /lib/*-linux-gnu | /usr/lib | /usr/lib64 | /usr/lib/*-linux-gnu) named=no ;;
    *) named=yes ;;
esac
expected="$local_runpath"
[[ "$named" == no ]] || expected="$local_runpath:$configured"
[[ "$(runpath "$staged")" == "$expected" ]] ||
    fail "libzorqfsdiag.so staged for $configured has RUNPATH $(runpath "$staged")"
# Where the system lets us put the staged tree in place of the configured prefix (a private mount
# namespace), a provider copied alone into a fresh directory finds the core there with no step.
in_place() {
    unshare -rm bash -c 'mount --bind "$1" "$2" && shift 2 && "$@"' _ "$work/stage$configured" \
        "$configured" "$@"
}
if [[ "$named" == yes && -d "$configured" ]] && in_place true 2>/dev/null; then
    mkdir "$work/alone-installed"
    cp "$staged" "$work/alone-installed/"
    found="$(in_place env -u LD_LIBRARY_PATH ldd "$work/alone-installed/libzorqfsdiag.so" |
        core_path)"
    [[ "$found" == "$configured/libdiagcore.so.0" ]] ||
        fail "a provider copied alone finds the core at $found, not in $configured"
else
    echo "check-install: not checked: a copied provider finding the core in $configured"
fi

# The Debian package carries the same files; it installs under /usr, so its providers keep only
# their own entries.
(cd "$build" && cpack -G DEB -B "$work/deb" >/dev/null)
deb="$(ls "$work"/deb/libdiagcore_*.deb)"
contents="$(dpkg-deb -c "$deb")"
for f in usr/bin/diagctl usr/include/diagcore/entry/DiagProvider.h libzorqfsdiag.so \
         share/diagcore/mof/registration/diagcore.reg; do
    grep -q "$f" <<<"$contents" || fail "the package lacks $f"
done
dpkg-deb -x "$deb" "$work/debroot"
for p in "${providers[@]}"; do
    packaged="$(find "$work/debroot/usr" -path "*/diagcore/providers/$p")"
    [[ "$(runpath "$packaged")" == "$local_runpath" ]] ||
        fail "the packaged $p has RUNPATH $(runpath "$packaged")"
done
