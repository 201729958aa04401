#!/usr/bin/env bash
# Fuzzes one file reader: scripts/fuzz.sh TARGET SECONDS [extra libFuzzer options]
# TARGET is a name of fuzz/CMakeLists.txt (bvh, structure, scene ...). Builds build-fuzz/ with
# clang (libFuzzer, AddressSanitizer, UBSan) when needed, starts from the checked-in seeds,
# and keeps what it learns in build-fuzz/corpus/TARGET/. A crash, leak, timeout or running out
# of memory stops the run and leaves the input in build-fuzz/artifacts/TARGET/: fix the
# reader, then copy the input to fuzz/crashes/TARGET/ so that the replay test keeps it.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ $# -lt 2 ]; then
  echo "usage: scripts/fuzz.sh TARGET SECONDS [libFuzzer options]" >&2
  exit 2
fi
target=$1
seconds=$2
shift 2
CXX=${TROVO_FUZZ_CXX:-clang++-14}
build=build-fuzz
if [ ! -f "$build/CMakeCache.txt" ]; then
  launcher=()
  if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER="$CXX" -DTROVO_FUZZ=ON \
    -DTROVO_BUILD_TESTS=OFF -DTROVO_BUILD_BENCH=OFF -DTROVO_WERROR=OFF "${launcher[@]}"
fi
cmake --build "$build" -j2 --target "fuzz_$target"
mkdir -p "$build/corpus/$target" "$build/artifacts/$target"
seeds=(fuzz/corpus/"$target")
if [ -d "fuzz/crashes/$target" ]; then seeds+=(fuzz/crashes/"$target"); fi
# Every input that ends with more blocks allocated than freed gets a leak check, which walks
# the whole heap, freed blocks held back by AddressSanitizer included: a smaller hold-back makes
# the readers that allocate much (XML, Assimp) several times faster to fuzz.
export ASAN_OPTIONS=${ASAN_OPTIONS:-quarantine_size_mb=16}
# Leaks that lie wholly inside third-party libraries are listed in fuzz/lsan.supp.
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/fuzz/lsan.supp:print_suppressions=0}
exec nice -n 19 "$build/bin/fuzz_$target" "$build/corpus/$target" "${seeds[@]}" \
  -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=25 -print_final_stats=1 \
  -artifact_prefix="$build/artifacts/$target/" "$@"
