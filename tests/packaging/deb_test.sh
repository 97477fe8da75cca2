#!/bin/sh
# Builds the .deb, installs it into this machine with dpkg -i, runs it, removes it again and checks that
# no file it brought is left behind. Exits 77 (skipped) without root, or when a brivane package that this
# test did not install is already there.
# usage: deb_test.sh BUILD_DIR VERSION
set -eu
build=$1
version=$2
[ "$(id -u)" -eq 0 ] || { echo "skipped: dpkg -i needs root"; exit 77; }

# Several work trees on one machine may run this at once; dpkg takes one at a time.
exec 9> /tmp/brivane-deb-test.lock
flock 9
if dpkg-query -W -f='${Status}' brivane 2> /dev/null | grep -q 'ok installed'; then
    echo "skipped: a brivane package is already installed here; leaving it alone"
    exit 77
fi

work=$(mktemp -d)
installed=false
cleanup() {
    if $installed; then dpkg --purge brivane > /dev/null 2>&1 || true; fi
    rm -rf "$work"
}
trap cleanup EXIT
. "$(dirname "$0")/checks.sh"

cpack -G DEB -B "$work/pkg" --config "$build/CPackConfig.cmake" > "$work/cpack.log" 2>&1 ||
    { cat "$work/cpack.log" >&2; fail "cpack -G DEB failed"; }
deb=$(ls "$work"/pkg/brivane_"$version"_*.deb)
dpkg-deb -f "$deb" Depends | grep -q libpng || fail "the package does not depend on libpng"
dpkg-deb -f "$deb" Depends | grep -q gimp && fail "brivane depends on GIMP"
# The GIMP plug-in, where it was built, comes apart, in GIMP's plug-in folder.
for gimp in "$work"/pkg/brivane-gimp_"$version"_*.deb; do
    [ -f "$gimp" ] || continue
    dpkg-deb -c "$gimp" | grep -q ' ./usr/lib/gimp/2.0/plug-ins/brivane-gimp/brivane-gimp$' ||
        fail "brivane-gimp does not hold the plug-in in GIMP's plug-in folder"
done

installed=true
dpkg -i "$deb" > "$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log" >&2; fail "dpkg -i failed"; }
dpkg -L brivane > "$work/files"
[ "$(man -w brivane-render)" = /usr/share/man/man1/brivane-render.1.gz ] ||
    [ "$(man -w brivane-render)" = /usr/share/man/man1/brivane-render.1 ] || fail "man cannot find brivane-render"
check_installed /usr /usr/share/man/man1

dpkg --purge brivane > "$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log" >&2; fail "dpkg --purge failed"; }
installed=false
dpkg -L brivane > /dev/null 2>&1 && fail "dpkg still lists brivane after --purge"
# Every path the package brought is gone, save folders that other packages own too (/usr/bin, ...).
while read -r path; do
    if [ -e "$path" ] && ! { [ -d "$path" ] && dpkg -S "$path" > /dev/null 2>&1; }; then
        fail "$path is left behind after removal"
    fi
done < "$work/files"
echo "deb_test: $(basename "$deb") installed, ran, and left nothing behind when removed"
