#!/usr/bin/env bash
# The fixed sample of planted faults that measures the test suite: 80 mutants (65 in .cpp files
# over the library, the core family, hostsycl and the tool; 15 in headers that many units
# include), always the same seed, so that runs before and after a change of the tests compare.
# Run from the project's root after `cmake --preset default` and a full build; the tool is the
# workplace's mutant planter (give its path as MUTANTS, default ../shared/tools/mutants).
set -u
cd "${1:-.}"
mutants=${MUTANTS:-../shared/tools/mutants}
"$mutants" 'src/cpu/*.cpp' 'src/offload/*.cpp' 'src/service/*.cpp' 'src/estimators/*.cpp' \
    'platform/core/src/*.cpp' 'platform/core/threading/*.cpp' 'platform/hostsycl/src/*.cpp' \
    'tools/qnd_stats/*.cpp' --count 65 --seed 1212
"$mutants" platform/core/src/block_kernels.hpp --count 7 --seed 1212
"$mutants" 'src/cpu/*.hpp' --count 4 --seed 1212
"$mutants" 'src/gpu/*.hpp' --count 4 --seed 1212
