#!/bin/sh
# Runs each libFuzzer target for a set time or number of executions, whichever comes first, and prints
# one line per target: executions, edges covered, corpus size and any crash file.
#   tests/fuzz/run.sh BUILD_DIR SECONDS RUNS [TARGET...]
# A target missing from BUILD_DIR is taken from FUZZ_LEAN_BUILD (default BUILD_DIR-lean), the build
# without ASan. The files target runs within the bounds a module must keep: 512 MB and 5 s an input.
# New inputs go to BUILD_DIR/corpus/TARGET (the seeds in tests/fuzz/corpus stay as they are), crash,
# hang and leak inputs to BUILD_DIR/crashes/. Exits non-zero when any target found one.
set -u
build=$1 seconds=$2 runs=$3
shift 3
targets=${*:-preset svg png module files}
lean=${FUZZ_LEAN_BUILD:-$build-lean}
root=$(cd "$(dirname "$0")/../.." && pwd)
status=0
mkdir -p "$build/crashes" "$build/logs"
for t in $targets; do
  corpus=$build/corpus/$t
  mkdir -p "$corpus"
  set -- "$corpus"
  # The seeds kept in the repository, and the table-driven tests' bad files.
  [ -d "$root/tests/fuzz/corpus/$t" ] && set -- "$@" "$root/tests/fuzz/corpus/$t"
  [ -d "$root/tests/data/$t/bad" ] && set -- "$@" "$root/tests/data/$t/bad"
  [ -f "$root/tests/fuzz/$t.dict" ] && set -- "$@" -dict="$root/tests/fuzz/$t.dict"
  # Presets and guides both: the files target reads one of each.
  if [ "$t" = files ]; then
    cat "$root/tests/fuzz/preset.dict" "$root/tests/fuzz/svg.dict" >"$build/logs/files.dict"
    set -- "$@" -dict="$build/logs/files.dict" -timeout=5 -rss_limit_mb=512 -max_len=8192
  else
    # One slow input is a hang: each run of every target takes milliseconds.
    set -- "$@" -timeout=10 -rss_limit_mb=2048 -max_len=4096
  fi
  bin=$build/tests/fuzz/${t}_fuzzer
  [ -x "$bin" ] || bin=$lean/tests/fuzz/${t}_fuzzer
  log=$build/logs/$t.log
  "$bin" "$@" -max_total_time="$seconds" -runs="$runs" -print_final_stats=1 \
      -artifact_prefix="$build/crashes/$t-" >"$log" 2>&1
  code=$?
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -n 1 | cut -d' ' -f2)
  corp=$(grep -o 'corp: [0-9]*' "$log" | tail -n 1 | cut -d' ' -f2)
  secs=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$log")
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
  echo "fuzz $t: ${execs:-?} executions in ${secs:-?} s (${rate:-?} a second), ${cov:-?} edges, corpus ${corp:-?} inputs"
  if [ $code -ne 0 ]; then
    status=1
    echo "fuzz $t: FAILED (exit $code), log $log" >&2
    grep -E '^(==[0-9]+==ERROR|SUMMARY|module fault|artifact_prefix|Test unit written)' "$log" | head -n 8 >&2
  fi
done
exit $status
