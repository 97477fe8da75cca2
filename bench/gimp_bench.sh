#!/bin/sh
# The GIMP plug-in on the B4 page of tools_bench.sh (6071 x 8598, opaque black RGBA, default preset)
# against brivane-render on the same page. GIMP is timed twice per repeat, loading the page and
# quitting with and without the plug-in's run, and the difference is the plug-in's time inside GIMP:
# taking the layer's pixels, the render, and the new layer handed back.
#
#   bench/gimp_bench.sh [BUILD_DIR] [REPEATS]
set -eu

build=$(cd "${1:-build}" && pwd)
repeats=${2:-3}
plugin=$build/tools/gimp/brivane-gimp
render=$build/tools/render/brivane-render
[ -x "$plugin" ] || { echo "no GIMP plug-in in $build (libgimp2.0-dev missing?)"; exit 0; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM

vips black "$work/black.v" 6071 8598 --bands 3
vips bandjoin_const "$work/black.v" "$work/page.png" 255
rm "$work/black.v"

mkdir -p "$work/gimp/plug-ins/brivane-gimp"
cp "$plugin" "$work/gimp/plug-ins/brivane-gimp/"
echo "(plug-in-path \"\${gimp_plug_in_dir}/plug-ins:$work/gimp/plug-ins\")" > "$work/gimp/gimprc"
load="(define image (car (gimp-file-load 1 \"$work/page.png\" \"page.png\")))"
draw="(plug-in-brivane 1 image (car (gimp-image-get-active-layer image)) \"\" 0 1 0 0 0 0 0 0 \":S\" -1
      1 2 1 0 500 500 0 0 10 0 50 0 0 0 0 0 1)"

seconds() {
    start=$(date +%s.%N)
    "$@" > "$work/log" 2>&1 || { cat "$work/log" >&2; exit 1; }
    end=$(date +%s.%N)
    echo "$end - $start" | bc
}
gimp() {
    BRIVANE_GIMP_TIMINGS=1 GIMP2_DIRECTORY=$work/gimp gimp-console -i -d -f -b "$1" -b '(gimp-quit 0)'
}
median() {
    sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'
}

gimp '(gimp-quit 0)' > /dev/null 2>&1  # the first start writes GIMP's settings folder
i=0
while [ "$i" -lt "$repeats" ]; do
    seconds gimp "$load" >> "$work/load"
    seconds gimp "$load $draw" >> "$work/draw"
    cp "$work/log" "$work/draw.log"
    seconds "$render" "$work/page.png" -q -o "$work/render.png" >> "$work/render"
    i=$((i + 1))
done
load=$(median < "$work/load")
draw=$(median < "$work/draw")
render=$(median < "$work/render")
echo "GIMP plug-in on a 6071 x 8598 RGBA page, median of $repeats (wall time):"
awk -v l="$load" -v d="$draw" -v r="$render" 'BEGIN {
    printf "  gimp-console, load and quit      %6.2f s\n", l
    printf "  the same with plug-in-brivane    %6.2f s\n", d
    printf "  plug-in-brivane inside GIMP      %6.2f s\n", d - l
    printf "  brivane-render (read, render, write the PNG) %6.2f s\n", r
}'
echo "where the plug-in's time went (last run):"
sed -n 's/^brivane-gimp: timings: /  /p' "$work/draw.log"
