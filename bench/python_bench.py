"""Cost of the Python module over the library, measured against C++ in the same run.

    PYTHONPATH=build/<dir>/python /usr/bin/python3 bench/python_bench.py

Prints:
  RATIO python_capture_scan <capture_scan from Python / the same capture made by
        C++ code in the module: median over pairs of captures taken one after
        the other, so that the load of a shared machine hits both alike> (target 1.05)
  RATIO positions_o1 <time of scan.positions on a 2064 x 1544 scan / on a scan of
        a few points> (target ~1: the array is a view, whatever the scan's size)
"""
import statistics
import time

import tavrin

PAIRS = 30
ACCESSES = 5000


def python_capture_seconds(dev, count):
    seconds = []
    for _ in range(count):
        start = time.perf_counter()
        scan = dev.capture_scan()
        seconds.append(time.perf_counter() - start)
        del scan  # freed outside the timed span, as the C++ side frees its scan
    return seconds


def positions_seconds(scans):
    """Best time per access of each scan's positions, the scans taken in turn."""
    best = [float("inf")] * len(scans)
    for _ in range(25):
        for i, scan in enumerate(scans):
            start = time.perf_counter()
            for _ in range(ACCESSES):
                scan.positions
            best[i] = min(best[i], (time.perf_counter() - start) / ACCESSES)
    return best


def main():
    tavrin.sim.reset()
    tavrin.sim.add_device("BENCH-FULL", resolution=(2064, 1544))
    with tavrin.PhoXiDevice() as dev:
        dev.connect("BENCH-FULL", type="device")
        dev.capture_scan()  # warm up: first frame, allocator
        python, cpp = [], []
        for _ in range(PAIRS):
            python += python_capture_seconds(dev, 1)
            cpp += dev._cpp_capture_scan_seconds(1)
        big = dev.capture_scan()
        tiny = dev.capture_scan(accept=tavrin.Box(min=(-5, -5, 0), max=(5, 5, 5000)))
    py_med, cpp_med = statistics.median(python), statistics.median(cpp)
    paired = statistics.median(p / c for p, c in zip(python, cpp))
    print(f"capture_scan (2064 x 1544): Python {py_med * 1e3:.1f} ms (spread {min(python) * 1e3:.1f}-"
          f"{max(python) * 1e3:.1f}), C++ {cpp_med * 1e3:.1f} ms (spread {min(cpp) * 1e3:.1f}-{max(cpp) * 1e3:.1f})")
    big_t, tiny_t = positions_seconds([big, tiny])
    print(f"scan.positions: {len(big)} points {big_t * 1e9:.0f} ns, {len(tiny)} points {tiny_t * 1e9:.0f} ns")
    print(f"RATIO python_capture_scan {paired:.3f} (target 1.05)")
    print(f"RATIO positions_o1 {big_t / tiny_t:.3f} (target ~1)")


if __name__ == "__main__":
    main()
