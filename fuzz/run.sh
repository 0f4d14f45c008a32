#!/usr/bin/env bash
# Runs the picture fuzzer built in build-fuzz for SECONDS (default 60) from the seed corpus.
# New inputs it finds go to a scratch corpus, never into fuzz/seeds; a crash, a leak, a sanitizer
# report, an input slower than 5 s or a process over 2 GiB ends the run with a failure and leaves
# the input that caused it in the scratch folder, whose path is printed.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
fuzzer=build-fuzz/fuzz/clarovi_fuzz
scratch=$(mktemp -d "${TMPDIR:-/tmp}/clarovi-fuzz.XXXXXX")
mkdir -p "$scratch/corpus"
export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:abort_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
export QT_QPA_PLATFORM=offscreen
echo "Fuzzing for $seconds s; scratch folder $scratch"
"$fuzzer" -max_total_time="$seconds" -timeout=5 -rss_limit_mb=2048 -print_final_stats=1 \
  -seed="${FUZZ_SEED:-1}" -artifact_prefix="$scratch/" "$scratch/corpus" fuzz/seeds
rm -rf "$scratch"
