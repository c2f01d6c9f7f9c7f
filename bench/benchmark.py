#!/usr/bin/env python3
"""Measures vorn-virus-agent on the stand-ins: resident memory after start against a bare Qt
process with the same two connections, CPU while idle, the latency from signal_sysPop to the box's
"show" and from signalResult to the daemon call, the time a flood takes to be queued and journaled,
the journal's bytes per undecided threat, and memory per queued threat in a flood.

Run on a private bus: bench/run.sh does that. Prints a table and exits 0."""

import os
import re
import statistics
import subprocess
import sys
import tempfile
import time

BUILD = sys.argv[1]
IDLE_SECONDS = int(os.environ.get("VORN_BENCH_IDLE_SECONDS", "60"))
ROUNDS = int(os.environ.get("VORN_BENCH_ROUNDS", "100"))
FLOOD = 10000
CLOCK_TICKS = os.sysconf("SC_CLK_TCK")


def ctl(*args):
    return subprocess.run([f"{BUILD}/standins/vorn-standin-ctl", *args], check=True, capture_output=True,
                          text=True).stdout


def rss_kib(pid):
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    raise RuntimeError(f"no VmRSS for {pid}")


def cpu_ticks(pid):
    with open(f"/proc/{pid}/stat") as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    return int(fields[11]) + int(fields[12])  # utime + stime


def wait_until(condition, seconds, what):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        result = condition()
        if result:
            return result
        time.sleep(0.005)
    raise RuntimeError(f"timed out waiting for {what}")


class Transcript:
    """A stand-in's timestamped output, read as it grows."""

    LINE = re.compile(r"^\[(\d+\.\d+)\] (.*)$")

    def __init__(self, path):
        self.path = path
        self.seen = 0

    def find(self, pattern):
        """The timestamp and match of the first new line matching pattern, or None."""
        with open(self.path, encoding="utf-8", errors="replace") as f:
            lines = f.read().splitlines()
        for index in range(self.seen, len(lines)):
            line = self.LINE.match(lines[index])
            found = line and re.search(pattern, line.group(2))
            if found:
                self.seen = index + 1
                return float(line.group(1)), found
        return None


def percentile(values, share):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(round(share * (len(ordered) - 1))))]


def main():
    work = tempfile.mkdtemp(prefix="vorn-bench.")
    env = dict(os.environ, HALVO_LOG_FILE=f"{work}/events.jsonl", QT_QPA_PLATFORM="offscreen")
    daemon_out, riskbox_out = f"{work}/daemon.out", f"{work}/riskbox.out"
    processes = [
        subprocess.Popen([f"{BUILD}/standins/vorn-standin-daemon", "--timestamps"], env=env,
                         stdout=open(daemon_out, "w")),
        subprocess.Popen([f"{BUILD}/standins/vorn-standin-riskbox", "--headless", "--timestamps"], env=env,
                         stdout=open(riskbox_out, "w")),
    ]
    wait_until(lambda: subprocess.run([f"{BUILD}/standins/vorn-standin-ctl", "riskbox", "boxes"],
                                      capture_output=True).returncode == 0, 10, "the stand-ins")
    agent = subprocess.Popen([f"{BUILD}/app/vorn-virus-agent"], env=env, stdout=subprocess.DEVNULL)
    baseline = subprocess.Popen([f"{BUILD}/bench/vorn-bench-baseline"], env=env)
    processes += [agent, baseline]
    try:
        wait_until(lambda: os.path.exists(env["HALVO_LOG_FILE"]) and
                   "all signal have been connected" in open(env["HALVO_LOG_FILE"]).read(), 20, "the agent")
        time.sleep(2)
        agent_rss, baseline_rss = rss_kib(agent.pid), rss_kib(baseline.pid)
        print(f"resident memory after start        agent {agent_rss} KiB, bare Qt Widgets + D-Bus process "
              f"{baseline_rss} KiB: {agent_rss / baseline_rss:.2f} times (target: at most 1.25)", flush=True)

        before = cpu_ticks(agent.pid)
        time.sleep(IDLE_SECONDS)
        idle = (cpu_ticks(agent.pid) - before) / CLOCK_TICKS / IDLE_SECONDS * 100
        print(f"CPU while idle                      {idle:.3f}% of one core over {IDLE_SECONDS} s (target: under 0.1%)",
              flush=True)

        daemon, riskbox = Transcript(daemon_out), Transcript(riskbox_out)
        to_show, to_call = [], []
        for n in range(ROUNDS):
            ctl("daemon", "emit", "signal_sysPop", f"/bench/file-{n}.exe")
            emitted = wait_until(lambda: daemon.find(r"emitted signal_sysPop "), 10, "the emission")[0]
            shown, box = wait_until(lambda: riskbox.find(r"box (\d+) shown"), 10, "the quarantine notice")
            to_show.append((shown - emitted) * 1000)
            ctl("riskbox", "result", box.group(1), "1")
            confirm = wait_until(lambda: riskbox.find(r"box (\d+) shown"), 10, "the confirmation")[1].group(1)
            ctl("riskbox", "result", confirm, "2")
            answered = wait_until(lambda: riskbox.find(r"signalResult\(\d+, 2, .*sent on request"), 10, "the answer")[0]
            called = wait_until(lambda: daemon.find(r"call add_trustFile "), 10, "the daemon call")[0]
            to_call.append((called - answered) * 1000)
        for label, values in (("signal_sysPop -> show", to_show), ("signalResult -> daemon call", to_call)):
            print(f"latency {label:<28}p50 {statistics.median(values):.2f} ms, p95 {percentile(values, 0.95):.2f} ms, "
                  f"max {max(values):.2f} ms over {ROUNDS} rounds (target: p95 under 20 ms)", flush=True)

        name, path = "Trojan.GenericKD.Bench-1234567", "/home/bench/Downloads/" + "x" * 34 + ".exe"
        assert len(name) == 30 and len(path) == 60
        def settled(previous=[None]):
            now = rss_kib(agent.pid)
            stable, previous[0] = now == previous[0], now
            return stable

        # Two floods: the first also pays for one-off growth of the allocator's arenas (the messages
        # in flight), which glibc keeps; the second shows what each queued threat keeps.
        # Every threat is on disk before it is queued: the time to queue is the time until the
        # journal holds the whole flood.
        journal = os.path.join(os.environ["XDG_STATE_HOME"], "vorn-defender", "journal")
        def journaled():
            with open(journal, "rb") as records:
                return sum(1 for record in records if record.startswith(b"A "))
        growth, queued = [], []
        for n in range(2):
            before, started = rss_kib(agent.pid), time.monotonic()
            ctl("daemon", "emit-many", str(FLOOD), "signal_showAuthDialog", name, "", path, "false")
            wait_until(lambda: journaled() == FLOOD * (n + 1) or time.sleep(0.05), 60, "the flood to be journaled")
            queued.append(time.monotonic() - started)
            wait_until(lambda: settled() or time.sleep(0.5), 60, "the flood to be queued")
            growth.append((rss_kib(agent.pid) - before) * 1024 / FLOOD)
        print(f"flood queued and journaled          {queued[1]:.2f} s for the second {FLOOD} threats, {queued[0]:.2f} s "
              f"for the first; {os.path.getsize(journal) / (2 * FLOOD):.0f} bytes on disk per undecided threat",
              flush=True)
        print(f"memory per queued threat            {growth[1]:.0f} bytes in a second {FLOOD}-threat flood, "
              f"{growth[0]:.0f} in the first (30-character name, 60-character path, empty detail; "
              f"target: under 512)", flush=True)
    finally:
        for process in processes:
            process.terminate()
        for process in processes:
            process.wait(timeout=10)
        subprocess.run(["rm", "-rf", work])
    return 0


if __name__ == "__main__":
    sys.exit(main())
