#!/usr/bin/env bash
# Builds the library with QND_SYCL=external against AdaptiveCpp and runs the GPU engines' tests on
# its host device. AdaptiveCpp is built once per snapshot, in its library-only OpenMP mode, from
# ../shared/third_party into a cache directory; later runs reuse it. Prints a summary and exits
# non-zero if anything fails.
#
#   QND_ACPP_ARCHIVE  the AdaptiveCpp source archive (default ../shared/third_party/AdaptiveCpp-*.tar.gz)
#   QND_ACPP_CACHE    where AdaptiveCpp is unpacked, built and installed (default /tmp/qnd-acpp)
#   QND_JOBS          parallel build jobs (default 2)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
started=$(date +%s)

# ../shared beside the checkout, or beside the main checkout when this one is a worktree.
archive=${QND_ACPP_ARCHIVE:-}
if [[ -z $archive ]]; then
    common=$(git rev-parse --path-format=absolute --git-common-dir 2>/dev/null || echo "$root/.git")
    for dir in "$root/../shared" "$(dirname "$common")/../shared"; do
        archive=$(ls "$dir"/third_party/AdaptiveCpp-*.tar.gz 2>/dev/null | head -n 1 || true)
        [[ -n $archive ]] && break
    done
fi
if [[ -z $archive || ! -f $archive ]]; then
    echo "check-adaptivecpp: no AdaptiveCpp source archive (looked for ../shared/third_party/AdaptiveCpp-*.tar.gz; set QND_ACPP_ARCHIVE)" >&2
    exit 1
fi
cache=${QND_ACPP_CACHE:-/tmp/qnd-acpp}
jobs=${QND_JOBS:-2}
snapshot=$(basename "$archive" .tar.gz)
prefix=$cache/$snapshot/install
build=$root/build/adaptivecpp
log=$build/check-adaptivecpp.log

# AdaptiveCpp's library-only mode runs barriers on Boost fibers.
packages=(cmake ninja-build libboost-context-dev libboost-fiber-dev)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
    if [[ $(id -u) -ne 0 ]]; then
        echo "check-adaptivecpp: needs the Debian packages ${missing[*]}: sudo apt-get install -y ${missing[*]}" >&2
        exit 1
    fi
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

launcher=()
if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi

step() { printf '== %s\n' "$*"; }
# Runs a command with its output appended to `file`; on failure shows the output's end.
logged() {
    local file=$1
    shift
    if ! "$@" >>"$file" 2>&1; then
        tail -n 40 "$file" >&2
        echo "check-adaptivecpp: FAILED: $* (log: $file)" >&2
        exit 1
    fi
}

# 1. AdaptiveCpp, unless this snapshot is installed already.
if [[ ! -f $prefix/lib/cmake/AdaptiveCpp/adaptivecpp-config.cmake ]]; then
    step "building $snapshot in $cache/$snapshot"
    rm -rf "${cache:?}/$snapshot"
    mkdir -p "$cache/$snapshot/src"
    tar -xzf "$archive" -C "$cache/$snapshot/src" --strip-components=1
    logged "$cache/$snapshot/build.log" cmake -S "$cache/$snapshot/src" -B "$cache/$snapshot/build" \
        -G Ninja -Wno-dev -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" \
        "${launcher[@]}" -DACPP_COMPILER_FEATURE_PROFILE=none -DDEFAULT_TARGETS=omp.library-only \
        -DWITH_CUDA_BACKEND=OFF -DWITH_ROCM_BACKEND=OFF -DWITH_OPENCL_BACKEND=OFF
    logged "$cache/$snapshot/build.log" cmake --build "$cache/$snapshot/build" -j"$jobs" --target install
else
    step "reusing $snapshot in $prefix"
fi
acpp_built=$(date +%s)

# 2. The library and the GPU engines' tests on it.
step "configuring the library with QND_SYCL=external in $build"
mkdir -p "$build"
: >"$log"
logged "$log" cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    "${launcher[@]}" -DQND_SYCL=external -DAdaptiveCpp_DIR="$prefix/lib/cmake/AdaptiveCpp" \
    -DQND_BUILD_TESTS=ON
grep 'QND_SYCL=external' "$log"
step "building libqnd_sycl_stats.so and gpu_engines_test"
logged "$log" cmake --build "$build" -j"$jobs" --target qnd_sycl_stats gpu_engines_test
library=$build/lib/libqnd_sycl_stats.so
built=$(date +%s)

# 3. The dynamic table: the 192 estimators and the exception family, nothing else. The exceptions
# exported are those the built parts throw: without the CPU path, neither device_bad_alloc nor
# computation_error.
symbols=$(nm -DC --defined-only "$library" | cut -d' ' -f3-)
estimator='^[A-Za-z0-9_:]*(::event|void) tavrel::qnd::stats::[a-z_]+<'
family='^(typeinfo|typeinfo name|vtable) for tavrel::qnd::[a-z_]+$'
estimators=$(grep -c -E "$estimator" <<<"$symbols" || true)
others=$(grep -v -E "$estimator|$family" <<<"$symbols" || true)
thrown=(exception invalid_argument unimplemented unsupported_device)
grep -q 'the CPU path is left out' "$log" || thrown+=(computation_error device_bad_alloc)
expected_family=$(for c in "${thrown[@]}"; do
    printf '%s for tavrel::qnd::%s\n' typeinfo "$c" "typeinfo name" "$c" vtable "$c"
done | sort)
exported_family=$(grep -E "$family" <<<"$symbols" | sort || true)
surface_ok=0
[[ $estimators -eq 192 && -z $others && $exported_family == "$expected_family" ]] && surface_ok=1

# 4. The tests, on AdaptiveCpp's host device.
step "running gpu_engines_test"
set +e
"$build/bin/gpu_engines_test" --gtest_color=no 2>&1 | tee -a "$log"
tests_status=${PIPESTATUS[0]}
set -e
finished=$(date +%s)

ran=$(grep -o -E '^\[==========\] [0-9]+ tests? from .* ran' "$log" | tail -n 1 | grep -o -E '[0-9]+ tests?' | head -n 1 || true)
passed=$(grep -o -E '^\[  PASSED  \] [0-9]+ tests?' "$log" | tail -n 1 | grep -o -E '[0-9]+ tests?' || true)
failed=$(grep -c -E '^\[  FAILED  \] [a-z_]+\.' "$log" || true)

echo
echo "check-adaptivecpp summary"
echo "  AdaptiveCpp:  $snapshot, library-only OpenMP host device ($((acpp_built - started)) s)"
echo "  library:      $library, QND_SYCL=external ($((built - acpp_built)) s to configure and build)"
grep 'QND_SYCL=external:' "$log" | sed 's/^-- QND_SYCL=external: /  configure:    /'
if ((surface_ok)); then
    echo "  exported:     $estimators estimators and the type information of ${thrown[*]}; nothing else"
else
    echo "  exported:     WRONG: $estimators estimators (192 expected); exception family:"
    sed 's/^/                  /' <<<"$exported_family"
    echo "                others:"
    sed 's/^/                  /' <<<"$others" | head -n 20
fi
grep '^note:' "$log" | sort -u | sed 's/^note: /  note:         /'
echo "  tests:        ${ran:-none} ran, ${passed:-0} passed, $failed failed (exit status $tests_status)"
echo "  duration:     $((finished - started)) s"
if ((tests_status != 0 || !surface_ok)); then
    echo "check-adaptivecpp: FAILED (log: $log)"
    exit 1
fi
echo "check-adaptivecpp: passed"
