#!/usr/bin/env python3
"""Runs a command several times, each in a fresh output directory, and prints the median wall
time in seconds and the peak resident memory in KiB, or "timeout" / "failed".

Memory comes from one more run under GNU time: the resident-memory high-water mark of a child
of this Python process would include the parent's memory from before the exec.

Usage: measure.py RUNS LIMIT_SECONDS OUT_DIR -- COMMAND...   (the word OUT in COMMAND is
replaced by OUT_DIR)"""
import os
import shutil
import signal
import statistics
import subprocess
import sys
import time


def main():
    runs, limit, out = int(sys.argv[1]), float(sys.argv[2]), sys.argv[3]
    command = [out if word == "OUT" else word.replace("OUT/", out + "/") for word in sys.argv[5:]]
    times = []
    for _ in range(runs):
        shutil.rmtree(out, ignore_errors=True)
        os.makedirs(out)
        start = time.perf_counter()
        child = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        deadline = start + limit
        while True:
            pid, status, _ = os.wait4(child.pid, os.WNOHANG)
            if pid:
                break
            if time.perf_counter() > deadline:
                child.send_signal(signal.SIGKILL)
                os.wait4(child.pid, 0)
                print("timeout")
                return
            time.sleep(0.0005)
        times.append(time.perf_counter() - start)
        if os.waitstatus_to_exitcode(status) != 0:
            print("failed")
            return
    shutil.rmtree(out, ignore_errors=True)
    os.makedirs(out)
    report = out + ".rss"
    subprocess.run(["/usr/bin/time", "-f", "%M", "-o", report] + command,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=limit)
    with open(report) as f:
        peak = int(f.read().split()[-1])
    print(f"{statistics.median(times):.4f} {peak}")


main()
