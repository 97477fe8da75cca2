#!/bin/sh
# The two tools on a B4 page (6071 x 8598 at 600 dpi, opaque black RGBA, default preset) against
# `vips copy` of the same page, all in one run so the ratios hold on a loaded machine. Prints the
# median wall time of each, its ratio to vips, the peak resident memory and where the simulated host's
# time goes.
#
#   bench/tools_bench.sh [BUILD_DIR] [REPEATS]
set -eu

build=${1:-build}
repeats=${2:-3}
render=$build/tools/render/brivane-render
host=$build/tools/host/brivane-host
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM

vips black "$work/black.v" 6071 8598 --bands 3
vips bandjoin_const "$work/black.v" "$work/page.png" 255
rm "$work/black.v"

# Runs a command once and appends "seconds kilobytes" to the file named first.
measure() {
    out=$1
    shift
    if ! /usr/bin/time -f '%e %M' -o "$work/time" "$@" >/dev/null 2>"$work/stderr"; then
        cat "$work/stderr" >&2
        exit 1
    fi
    tail -n 1 "$work/time" >>"$work/$out"
}

median() {
    sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'
}

# The host's panel starts with all three points in the middle, which draws nothing; these are the
# default radiate points that brivane-render uses (50%,50% 50%,32.5% 50%,12.5%).
points="--set 171=3035,2794 --set 172=3035,1074"

i=0
while [ "$i" -lt "$repeats" ]; do
    measure vips vips copy "$work/page.png" "$work/vips.png"
    measure render "$render" "$work/page.png" -q -o "$work/render.png"
    measure host "$host" -i "$work/page.png" -q --timings -o "$work/host.png" $points
    i=$((i + 1))
done

vips_time=$(cut -d' ' -f1 "$work/vips" | median)
echo "tools on a 6071 x 8598 RGBA page, median of $repeats (wall time, peak RSS):"
for tool in vips render host; do
    t=$(cut -d' ' -f1 "$work/$tool" | median)
    kb=$(cut -d' ' -f2 "$work/$tool" | median)
    awk -v n="$tool" -v t="$t" -v v="$vips_time" -v kb="$kb" \
        'BEGIN { printf "  %-7s %6.2f s  %5.2fx vips copy  %5.0f MB\n", n, t, t / v, kb / 1024 }'
done
echo "where brivane-host's time went (last run):"
sed -n 's/^brivane-host: timings: /  /p' "$work/stderr"
