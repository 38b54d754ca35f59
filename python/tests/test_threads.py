"""The watchdog's callback, threads sharing a device, and shutdown with a live watchdog."""
import subprocess
import sys
import textwrap
import threading

import numpy as np
import tavrin


def test_connection_lost_callback_runs_on_the_watchdog_thread(device):
    seen = {}
    done = threading.Event()

    def lost():
        seen["thread"] = threading.get_ident()
        seen["connected"] = device.is_connected  # calls back into the device from that thread
        done.set()

    # Dropped first, the loss is found by the watchdog's first poll, at once.
    tavrin.sim.drop_connection(tavrin.sim.DEFAULT_SCANNER_ID)
    device.on_connection_lost(lost)
    assert done.wait(10)
    assert seen == {"thread": seen["thread"], "connected": False}
    assert seen["thread"] != threading.get_ident()


def test_two_python_threads_share_one_device(device):
    # One thread holds the device's lock while its acceptance function waits
    # for the GIL; the other and the main thread wait for that lock. Holding
    # the GIL while waiting would deadlock.
    results, errors = {0: [], 1: []}, []

    def work(index):
        try:
            for _ in range(3):
                accept = (lambda x, y, z: z < 1500) if index == 0 else None
                results[index].append(device.capture_scan(accept=accept))
        except Exception as error:  # pragma: no cover - reported below
            errors.append(error)

    threads = [threading.Thread(target=work, args=(i,)) for i in (0, 1)]
    for thread in threads:
        thread.start()
    while any(thread.is_alive() for thread in threads):
        assert device.is_connected
    assert errors == []
    assert all(len(scan) == len(results[1][0]) for scan in results[1])
    filtered = results[0][0]
    assert 0 < len(filtered) < len(results[1][0]) and (filtered.positions[:, 2] < 1500).all()
    np.testing.assert_array_equal(results[0][2].positions, filtered.positions)


def test_interpreter_exits_while_the_callback_runs():
    script = textwrap.dedent("""
        import threading, time, tavrin
        dev = tavrin.PhoXiDevice()
        dev.connect(tavrin.sim.DEFAULT_SCANNER_ID)
        running = threading.Event()
        def lost():
            running.set()
            time.sleep(0.3)
            print("lost", dev.is_connected, flush=True)
        tavrin.sim.drop_connection(tavrin.sim.DEFAULT_SCANNER_ID)
        dev.on_connection_lost(lost)
        running.wait(10)  # exit while the callback sleeps
    """)
    run = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, timeout=60)
    assert (run.returncode, run.stdout, run.stderr) == (0, "lost False\n", "")
