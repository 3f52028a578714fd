#!/usr/bin/env bash
# packages.sh BUILD SOURCE [PACKAGES]: the Debian packages of a build (those in the folder PACKAGES, or
# made anew) hold what they should, depend on what they should, satisfy lintian, and an application is
# built on them and runs, with both compilers, as C++11 and as C++20. Nothing is installed on this
# machine: the packages are unpacked into folders.
set -euo pipefail
build=$(cd "$1" && pwd)
source=$(cd "$2" && pwd)
packages=${3:+$(cd "$3" && pwd)}
export LC_ALL=C
unset LD_LIBRARY_PATH
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bad=0
complain() {
    echo "packages: $*"
    bad=1
}

if [ -z "$packages" ]; then
    packages=$work/packages
    (cd "$build" && cpack -B "$packages") >"$work/cpack.log" 2>&1 || { cat "$work/cpack.log"; exit 1; }
fi
all="libvelazcemdapi3 libvelazcemdapi-dev velazcemdapi-board velazcemdapi-doc"
[ "$(cd "$packages" && ls -- *.deb | sed 's/_.*//' | sort | tr '\n' ' ')" = "$(tr ' ' '\n' <<<"$all" | sort | tr '\n' ' ')" ] ||
    complain "other packages than $all: $(ls "$packages")"

# field PACKAGE NAME: of its control file.
field() { dpkg-deb -f "$packages/$1"_*.deb "$2"; }
for name in $all; do
    dpkg-deb -R "$packages/$name"_*.deb "$work/$name"
    dpkg-deb -x "$packages/$name"_*.deb "$work/root"
    (cd "$work/$name" && find . -path ./DEBIAN -prune -o ! -type d -print | sed 's#^\./##' | sort) >"$work/files"
    cp "$source/packaging/$name.files" "$work/expected"
    if [ "$name" = velazcemdapi-doc ]; then # the pages and examples, as they are in the source tree
        (cd "$source" && find docs examples ! -type d ! -name CMakeLists.txt ! -name Doxyfile.in ! -name '*.dox') |
            sed 's#^#usr/share/doc/VelaZceMdApi/#' >>"$work/expected"
    fi
    diff -u <(sort "$work/expected") "$work/files" ||
        complain "$name holds other files than packaging/$name.files says"
    [ "$(field "$name" Version)" = 3.10.0-1 ] || complain "$name has the version $(field "$name" Version)"
    [ "$(field "$name" Source)" = velazcemdapi ] || complain "$name has the source $(field "$name" Source)"
    owners=$(dpkg-deb -c "$packages/$name"_*.deb | awk '{ print $2 }' | sort -u)
    [ "$owners" = root/root ] || complain "$name has files of $owners"
done

# depends PACKAGE NAME...: the packages that it names, without their versions; an exact version stays.
depends() {
    local name=$1 got
    shift
    got=$(field "$name" Depends | sed 's/ ([^=)][^)]*)//g')
    [ "$got" = "$*" ] || complain "$name depends on '$got', not on '$*'"
}
depends libvelazcemdapi3 "libc6, libgcc-s1, libstdc++6"
depends libvelazcemdapi-dev "libvelazcemdapi3 (= 3.10.0-1)"
depends velazcemdapi-board "libvelazcemdapi3 (= 3.10.0-1), libc6, libfmt9, libgcc-s1, libiniparser1, libnats3.4, libncurses6, libpcap0.8, libstdc++6, libtinfo6"
depends velazcemdapi-doc ""
[ "$(field velazcemdapi-doc Architecture)" = all ] || complain "velazcemdapi-doc is not for all architectures"

# What an application's package learns of the library; of the board's library, which belongs to its
# vendor, nobody learns anything.
[ "$(cat "$work/libvelazcemdapi3/DEBIAN/shlibs")" = "libVelaZceMdApi 3 libvelazcemdapi3 (>= 3.10.0)" ] ||
    complain "shlibs: $(cat "$work/libvelazcemdapi3/DEBIAN/shlibs")"
for name in libvelazcemdapi-dev velazcemdapi-board velazcemdapi-doc; do
    [ ! -e "$work/$name/DEBIAN/shlibs" ] && [ ! -e "$work/$name/DEBIAN/symbols" ] ||
        complain "$name says that it provides a library"
done
dpkg-gensymbols -plibvelazcemdapi3 -v3.10.0-1 -P"$work/libvelazcemdapi3" -c4 -O/dev/null \
    -I"$source/packaging/symbols" >"$work/symbols" 2>&1 || { cat "$work/symbols"; complain "symbols"; }

if ! lintian --allow-root --fail-on error,warning "$packages"/*.deb >"$work/lintian" 2>&1; then
    cat "$work/lintian"
    complain "lintian"
fi

# pc ROOT: the flags for an application on the tree below ROOT. app ROOT COMPILER STANDARD: builds it.
pc() { PKG_CONFIG_LIBDIR="$1/usr/lib/pkgconfig" pkg-config --cflags --libs velazcemdapi; }
app() {
    # shellcheck disable=SC2046
    "$2" -std="$3" -Wall -Wextra -Werror "$work/root/usr/share/doc/VelaZceMdApi/examples/minimal.cpp" \
        -o "$work/app-$2-$3" $(pc "$1") 2>"$work/compiler" ||
        { cat "$work/compiler"; complain "$2 -std=$3: no application"; return 1; }
}
export ZCE_BOARD_SHM_PREFIX="packages$$-"
printf '[config]\ndevice = xilinx0:0\n' >"$work/config.ini"
# Without a board a start ends the process, with the library's own words.
run() {
    (cd "$work" && "$@" config.ini) >"$work/output" 2>&1 || complain "$*: exit status $?"
    grep -q 'Init New drive failed! ret:-1' "$work/output" || { cat "$work/output"; complain "$* ended otherwise"; }
}
for compiler in g++ clang++-14; do
    for standard in c++11 c++20; do
        app "$work/root" $compiler $standard && run "$work/root/usr/bin/zce-board-run" "$work/app-$compiler-$standard"
    done
done
run "$work/root/usr/bin/zce-recv"
[ "$("$work/root/usr/bin/zce-board" --products all --list-instruments | wc -l)" = 4467 ] ||
    complain "zce-board does not list its instruments"
# On the library and its development files alone, as where the vendor's library is somewhere else.
cp -a "$work/libvelazcemdapi3" "$work/two"
cp -a "$work/libvelazcemdapi-dev/usr" "$work/two"
app "$work/two" g++ c++11 || true

# An application's package depends on the library's.
mkdir "$work/debian"
printf 'Source: app\n\nPackage: app\nArchitecture: any\n' >"$work/debian/control"
got=$(cd "$work" && dpkg-shlibdeps --ignore-missing-info -O -S"$work/libvelazcemdapi3" \
    -l"$work/root/usr/lib/zce-board" -e app-g++-c++20 2>/dev/null)
grep -q 'libvelazcemdapi3 (>= 3.10.0)' <<<"$got" || complain "an application's package depends on: $got"
[ $bad -eq 0 ] && echo "packages: $(wc -w <<<"$all"), as they should be"
exit $bad
