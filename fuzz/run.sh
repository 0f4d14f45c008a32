#!/usr/bin/env bash
# Runs the fuzzers built in build-fuzz from the seed corpus: the picture reader for SECONDS
# (default 60), then the export's metadata path for half as long. New inputs they find go to a
# scratch corpus, never into fuzz/seeds; a crash, a leak, a sanitizer report, an input slower than
# 5 s or a process over 2 GiB ends the run with a failure and leaves the input that caused it in
# the scratch folder, whose path is printed.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
scratch=$(mktemp -d "${TMPDIR:-/tmp}/clarovi-fuzz.XXXXXX")
export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:abort_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
export QT_QPA_PLATFORM=offscreen
fuzz() { # target, seconds
  mkdir -p "$scratch/$1/corpus"
  echo "Fuzzing $1 for $2 s; scratch folder $scratch/$1"
  "build-fuzz/fuzz/$1" -max_total_time="$2" -timeout=5 -rss_limit_mb=2048 -print_final_stats=1 \
    -seed="${FUZZ_SEED:-1}" -artifact_prefix="$scratch/$1/" "$scratch/$1/corpus" fuzz/seeds
}
fuzz clarovi_fuzz "$seconds"
fuzz clarovi_metadata_fuzz $((seconds / 2))
rm -rf "$scratch"
