"""NumPy's exact median of the routines benchmark's data shape (16 x 4M doubles), the baseline
of median_16x4m: run it in the same session as routines_bench and compare the times."""
import sys
import time

import numpy as np

n = 4_000_000 // (20 if "--short" in sys.argv else 1)
x = 1e8 + np.random.default_rng(5).normal(size=(16, n))
times = []
for _ in range(5):
    t = time.perf_counter()
    np.median(x, axis=1)
    times.append(time.perf_counter() - t)
print(f"numpy {np.__version__} median of 16 x {n} doubles, axis=1: "
      f"median of 5 runs {sorted(times)[2] * 1e3:.1f} ms")
