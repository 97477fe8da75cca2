#!/bin/sh
# Runs each libFuzzer target for a set time or number of executions, whichever comes first, and prints
# one line per target: executions, edges covered, corpus size and any crash file.
#   tests/fuzz/run.sh BUILD_DIR SECONDS RUNS [TARGET...]
# A target built in FUZZ_LEAN_BUILD (default BUILD_DIR-lean, without ASan) is taken from there.
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
  # One slow input is a hang; the files target runs within the bounds a module must keep.
  if [ "$t" = files ]; then set -- "$@" -timeout=5 -rss_limit_mb=512 -max_len=8192
  else set -- "$@" -timeout=10 -rss_limit_mb=2048 -max_len=4096; fi
  bin=$lean/tests/fuzz/${t}_fuzzer
  [ -x "$bin" ] || bin=$build/tests/fuzz/${t}_fuzzer
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
