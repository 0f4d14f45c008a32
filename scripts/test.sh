#!/usr/bin/env bash
# Installs what is missing, builds Clarovi and runs every test. In CI (CI=true) or with
# --sanitize it also checks the formatting, runs the same tests under ASan + UBSan, and runs the
# picture fuzzer for a minute and the export's metadata fuzzer for half a minute on the seeds.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

strict=false
[ "${CI:-}" = true ] || [ "${1:-}" = --sanitize ] && strict=true
werror=OFF
$strict && werror=ON

cmake -S . -B build -G Ninja -DCLAROVI_WERROR=$werror
cmake --build build
ctest --test-dir build --output-on-failure -j2 --timeout 600

$strict || exit 0

git ls-files -- 'src/*.cpp' 'src/*.h' 'tests/*.cpp' 'tests/*.h' 'bench/*.cpp' 'bench/*.h' \
  'fuzz/*.cpp' \
  | xargs clang-format --dry-run --Werror

cmake -S . -B build-asan -G Ninja -DCLAROVI_WERROR=ON -DCLAROVI_SANITIZE=address,undefined \
  -DCLAROVI_BENCHMARKS=OFF
cmake --build build-asan
export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:abort_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
ctest --test-dir build-asan --output-on-failure -j2 --timeout 900

CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCLAROVI_FUZZ=ON -DCLAROVI_WERROR=ON
cmake --build build-fuzz --target clarovi_fuzz clarovi_metadata_fuzz
fuzz/run.sh 60
