#!/usr/bin/env python3
"""Runs a command several times, each in a fresh output directory, and prints the median wall
time in seconds and the peak resident memory in KiB, or "timeout" / "failed".

Memory comes from one more run under GNU time: the resident-memory high-water mark of a child
of this Python process would include the parent's memory from before the exec.

With --io, a third number: the bytes the command read through read calls in its last timed
run (`rchar` of /proc/PID/io, read while the finished child is still unreaped).

Several commands, each after its own "--", are measured in alternation and get a line each, in
order.

Usage: measure.py [--io] RUNS LIMIT_SECONDS OUT_DIR -- COMMAND... [-- COMMAND...]   (the word OUT
in a COMMAND is replaced by OUT_DIR)"""
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


def run_once(command, out, limit, io):
    """Runs `command` once in a fresh `out`: (seconds, exit status, bytes read), or None on
    timeout."""
    shutil.rmtree(out, ignore_errors=True)
    os.makedirs(out)
    read_chars = 0
    start = time.perf_counter()
    child = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    deadline = start + limit
    while True:
        if os.waitid(os.P_PID, child.pid, os.WEXITED | os.WNOHANG | os.WNOWAIT):
            end = time.perf_counter()
            if io:
                read_chars = read_char_count(child.pid)
            _, status, _ = os.wait4(child.pid, 0)
            return end - start, status, read_chars
        if time.perf_counter() > deadline:
            child.send_signal(signal.SIGKILL)
            os.wait4(child.pid, 0)
            return None
        time.sleep(0.0005)


def peak_memory(command, out, limit):
    shutil.rmtree(out, ignore_errors=True)
    os.makedirs(out)
    report = out + ".rss"
    subprocess.run(["/usr/bin/time", "-f", "%M", "-o", report] + command,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=limit)
    with open(report) as f:
        return int(f.read().split()[-1])


def main():
    args = sys.argv[1:]
    io = args[0] == "--io"
    if io:
        args = args[1:]
    runs, limit, out = int(args[0]), float(args[1]), args[2]
    # One command, or several, each after its own "--": several are run in turn, one run of each
    # in every round, so that a machine getting faster or slower weighs on all of them alike.
    commands = []
    for word in args[3:]:
        if word == "--":
            commands.append([])
        else:
            commands[-1].append(out if word == "OUT" else word.replace("OUT/", out + "/"))
    times = [[] for _ in commands]
    read_chars = [0 for _ in commands]
    failed = [None for _ in commands]
    for _ in range(runs):
        for i, command in enumerate(commands):
            if failed[i]:
                continue
            result = run_once(command, out, limit, io)
            if result is None:
                failed[i] = "timeout"
            elif os.waitstatus_to_exitcode(result[1]) != 0:
                failed[i] = "failed"
            else:
                times[i].append(result[0])
                read_chars[i] = result[2]
    for i, command in enumerate(commands):
        if failed[i]:
            print(failed[i])
            continue
        peak = peak_memory(command, out, limit)
        print(f"{statistics.median(times[i]):.4f} {peak}" + (f" {read_chars[i]}" if io else ""))


main()
