#!/bin/sh
# Runs a Windows program under Wine, headless, with the Wine prefix in the build folder it was built in
# (found from the program's path), so that tests never touch a prefix of the user's.
program=$1
shift
dir=$(cd "$(dirname "$program")" && pwd)
while [ "$dir" != / ] && [ ! -f "$dir/CMakeCache.txt" ]; do dir=$(dirname "$dir"); done
[ "$dir" = / ] && dir=$(pwd)
export WINEPREFIX="${WINEPREFIX:-$dir/wineprefix}" WINEDEBUG=-all DISPLAY=
exec "${WINE:-/usr/lib/wine/wine64}" "$program" "$@"
