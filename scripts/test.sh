#!/usr/bin/env bash
# Installs what is missing, builds Clarovi and runs every test. In CI (CI=true) or with
# --sanitize it instead checks the formatting, builds everything (the benchmarks included) with
# ASan + UBSan and warnings as errors, runs every test there, and runs the picture fuzzer for
# SECONDS (CLAROVI_FUZZ_SECONDS, default 40) and the export's metadata fuzzer for half as long on
# the seeds. One sanitized build instead of a plain one and a sanitized one keeps CI near half
# the time; the tests are the same.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

strict=false
[ "${CI:-}" = true ] || [ "${1:-}" = --sanitize ] && strict=true

if ! $strict; then
  cmake -S . -B build -G Ninja -DCLAROVI_WERROR=OFF
  cmake --build build
  ctest --test-dir build --output-on-failure -j2 --timeout 600
  exit 0
fi

git ls-files -- 'src/*.cpp' 'src/*.h' 'tests/*.cpp' 'tests/*.h' 'bench/*.cpp' 'bench/*.h' \
  'fuzz/*.cpp' \
  | xargs clang-format --dry-run --Werror

cmake -S . -B build-asan -G Ninja -DCLAROVI_WERROR=ON -DCLAROVI_SANITIZE=address,undefined
cmake --build build-asan
export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:abort_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
ctest --test-dir build-asan --output-on-failure -j2 --timeout 900

CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCLAROVI_FUZZ=ON -DCLAROVI_WERROR=ON
cmake --build build-fuzz --target clarovi_fuzz clarovi_metadata_fuzz
fuzz/run.sh "${CLAROVI_FUZZ_SECONDS:-40}"
