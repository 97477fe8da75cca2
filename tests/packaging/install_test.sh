#!/bin/sh
# cmake --install into a scratch DESTDIR, with a prefix the build was not configured for, then the
# installed tools run from there.
# usage: install_test.sh BUILD_DIR VERSION
set -eu
build=$1
version=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
. "$(dirname "$0")/checks.sh"

prefix=/opt/brivane-moved
DESTDIR=$work/stage cmake --install "$build" --prefix "$prefix" > "$work/install.log" ||
    { cat "$work/install.log" >&2; fail "cmake --install failed"; }
root=$work/stage$prefix
for f in bin/brivane-render bin/brivane-host lib/brivane/brivane.so lib/brivane/brivane-resources.txt \
         share/brivane/samples/focus.ini share/brivane/samples/wave.svg share/brivane/samples/speed.png; do
    [ -f "$root/$f" ] || fail "$f was not installed"
done
if [ -x "$build/tools/gimp/brivane-gimp" ]; then
    [ -x "$root/lib/gimp/2.0/plug-ins/brivane-gimp/brivane-gimp" ] || fail "the GIMP plug-in was not installed"
fi
check_installed "$root" "$root/share/man/man1"
echo "install_test: installed under $prefix, both tools ran, both manual pages render"
