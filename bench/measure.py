#!/usr/bin/env python3
"""Runs a command several times, each in a fresh output directory, and prints the median wall
time in seconds and the peak resident memory in KiB, or "timeout" / "failed".

Memory comes from one more run under GNU time: the resident-memory high-water mark of a child
of this Python process would include the parent's memory from before the exec.

With --io, a third number: the bytes the command read through read calls in its last timed
run (`rchar` of /proc/PID/io, read while the finished child is still unreaped).

Usage: measure.py [--io] RUNS LIMIT_SECONDS OUT_DIR -- COMMAND...   (the word OUT in COMMAND is
replaced by OUT_DIR)"""
import os
import shutil
import signal
import statistics
import subprocess
import sys
import time


def read_char_count(pid):
    with open(f"/proc/{pid}/io") as f:
        for line in f:
            if line.startswith("rchar:"):
                return int(line.split()[1])
    return 0


def main():
    args = sys.argv[1:]
    io = args[0] == "--io"
    if io:
        args = args[1:]
    runs, limit, out = int(args[0]), float(args[1]), args[2]
    command = [out if word == "OUT" else word.replace("OUT/", out + "/") for word in args[4:]]
    times = []
    read_chars = 0
    for _ in range(runs):
        shutil.rmtree(out, ignore_errors=True)
        os.makedirs(out)
        start = time.perf_counter()
        child = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        deadline = start + limit
        while True:
            if os.waitid(os.P_PID, child.pid, os.WEXITED | os.WNOHANG | os.WNOWAIT):
                end = time.perf_counter()
                if io:
                    read_chars = read_char_count(child.pid)
                _, status, _ = os.wait4(child.pid, 0)
                break
            if time.perf_counter() > deadline:
                child.send_signal(signal.SIGKILL)
                os.wait4(child.pid, 0)
                print("timeout")
                return
            time.sleep(0.0005)
        times.append(end - start)
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
    print(f"{statistics.median(times):.4f} {peak}" + (f" {read_chars}" if io else ""))


main()
