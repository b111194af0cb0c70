#!/usr/bin/env bash
# fuzz/run.sh TARGET SECONDS [libFuzzer options...]
# Builds fuzz/TARGET_fuzz.cpp with the fuzz preset and runs it for SECONDS
# at the lowest priority, with the dictionary, on a working copy of
# fuzz/corpus/TARGET (new inputs go to build/fuzz/corpus/TARGET, crashes to
# build/fuzz/artifacts/TARGET/), logging to build/fuzz/logs/TARGET.log.
# Targets: v2_decoder v1_decoder tracebuf_decoder db_reader check gfile.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ $# -lt 2 ]; then
  echo "usage: fuzz/run.sh TARGET SECONDS [libFuzzer options...]" >&2
  exit 2
fi
target=$1
seconds=$2
shift 2
[ -f "fuzz/${target}_fuzz.cpp" ] || { echo "no target fuzz/${target}_fuzz.cpp" >&2; exit 2; }

cmake --preset fuzz >/dev/null
nice -n 19 cmake --build --preset fuzz --target "${target}_fuzz"

corpus=build/fuzz/corpus/$target
artifacts=build/fuzz/artifacts/$target
mkdir -p "$corpus" "$artifacts" build/fuzz/logs
nice -n 19 "build/fuzz/fuzz/${target}_fuzz" -max_total_time="$seconds" -dict=fuzz/ravelog.dict \
  -artifact_prefix="$artifacts/" -print_final_stats=1 "$@" "$corpus" "fuzz/corpus/$target" \
  2>&1 | tee "build/fuzz/logs/$target.log"
