#!/usr/bin/env bash
# Builds the fuzz targets with clang, libFuzzer, AddressSanitizer and UndefinedBehaviorSanitizer,
# seeds them from the real movies of tests/data, and runs each for SECONDS (two at a time). Fails
# when any target finds a crash, a leak, a time-out or memory past the limit; the input that did it
# is left in build-fuzz/artifacts/.
#   fuzz/run.sh [SECONDS] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(fuzz_movie fuzz_tables fuzz_descriptions fuzz_alias)

build=build-fuzz
fuzz/configure.sh
ninja -C "$build" -j2 make_seeds "${targets[@]}"

seeds="$build/seeds"
rm -rf "$seeds"
"$build/make_seeds" "$seeds" tests/data/*.mov
mkdir -p "$build/artifacts"

run() {
  local target=$1 kind=${1#fuzz_}
  mkdir -p "$build/corpus/$target"
  local status=0
  "$build/$target" "$build/corpus/$target" "$seeds/$kind" -dict=fuzz/atoms.dict -max_total_time="$seconds" \
    -max_len=65536 -timeout=25 -rss_limit_mb=1024 -malloc_limit_mb=512 -print_final_stats=1 \
    -artifact_prefix="$build/artifacts/$target-" >"$build/$target.log" 2>&1 || status=$?
  local execs cov
  execs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$build/$target.log" | grep -o '[0-9]*$' || true)
  cov=$(grep -o 'cov: [0-9]*' "$build/$target.log" | tail -1 || true)
  echo "$target: exit $status, ${execs:-?} runs in ${seconds} s, $cov"
  [ $status -eq 0 ] || tail -40 "$build/$target.log"
  return $status
}

failed=0
for ((i = 0; i < ${#targets[@]}; i += 2)); do
  run "${targets[i]}" &
  first=$!
  second=""
  if [ $((i + 1)) -lt ${#targets[@]} ]; then
    run "${targets[i + 1]}" &
    second=$!
  fi
  wait $first || failed=1
  [ -z "$second" ] || wait $second || failed=1
done
exit $failed
