#!/usr/bin/env bash
# package.sh [--check]: builds the Debian packages libvelazcemdapi3, libvelazcemdapi-dev,
# velazcemdapi-board and velazcemdapi-doc into build/packages. With --check they are looked at as the
# tests do: contents, dependencies, lintian, an application that is built on them and runs. Installs
# what is missing (apt), builds what changed. scripts/package-chroot.sh tries them on a fresh Debian 12.
source "$(dirname "$0")/common.sh"

case ${*-} in
'' | --check) ;;
*)
    echo "Usage: scripts/package.sh [--check]" >&2
    exit 2
    ;;
esac
need "${BUILD_PACKAGES[@]}" dpkg-dev file binutils
say "Building (Release)"
built=$(build release installed) || { echo "$built" | tail -n 30; exit 1; }
say "Packaging"
rm -rf build/packages
# The files' times are those of the last commit, so that the same tree gives the same packages.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || date +%s)}
export SOURCE_DATE_EPOCH
(cd build/release && cpack -B "$ROOT/build/packages") >build/packages.log 2>&1 || { cat build/packages.log; exit 1; }
rm -rf build/packages/_CPack_Packages
if [ -n "${1-}" ]; then
    say "Checking"
    need "${TEST_PACKAGES[@]}"
    tests/system/packages.sh build/release "$ROOT" build/packages
fi
(cd build/packages && ls -l -- *.deb | awk '{ printf "%9d  build/packages/%s\n", $5, $9 }')
echo "package: ok, $(ls build/packages/*.deb | wc -l) packages"
