#!/usr/bin/env python3
"""Measures vorn-virus-agent on the stand-ins, in one or more builds (Qt 6's and Qt 5's), and prints
one table with the builds side by side and the targets:

- resident memory after start, against a bare Qt Widgets + D-Bus process with the same two
  connections (bench/baseline.cpp);
- CPU and wake-ups while idle;
- the latency from signal_sysPop to the notice's "show" and from signalResult to the daemon call,
  for the agent and for the bare process making the same calls;
- the time a flood takes to be queued and journaled, the journal's bytes per undecided threat, and
  memory per queued threat;
- for a burst of threats announced at once, the time from the last announcement until the journal
  has synced all of them, and the syncs that took.

    benchmark.py LABEL=BUILD [LABEL=BUILD...]      e.g. "Qt 6.8.2=build-bench"

Run on a private bus: bench/run.sh does that. Exits 0 when every figure meets its target.

A new measurement is a function of a Run that stores figures in run.figures, listed in MEASUREMENTS
(they run in that order, on each build in turn), and the rows that show them, listed in ROWS."""

import glob
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time

IDLE_SECONDS = int(os.environ.get("VORN_BENCH_IDLE_SECONDS", "60"))
ROUNDS = int(os.environ.get("VORN_BENCH_ROUNDS", "100"))
FLOOD = 10000
FLOODS = 4
# The threat a flood announces FLOOD times: a 30-character name, a 60-character path, no detail.
THREAT_NAME, THREAT_PATH = "Trojan.GenericKD.Bench-1234567", "/home/bench/Downloads/" + "x" * 34 + ".exe"
# The journal thread's debug line after each write, with the file's size after it and the syncs so far.
WRITTEN = r"^threat journal: written, (\d+) bytes on disk, (\d+) syncs since start$"


def rss_kib(pid, field="VmRSS"):
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            if line.startswith(field + ":"):
                return int(line.split()[1])
    raise RuntimeError(f"no {field} for {pid}")


def anonymous_kib(pid):
    """Resident memory of the process's own data: without the pages of its libraries and code,
    which a flood's first pass through a path brings in once."""
    return rss_kib(pid, "RssAnon")


def cpu_ns(pid):
    """CPU time of all the process's threads, in nanoseconds (the scheduler's own count, finer than
    the clock ticks of /proc/PID/stat)."""
    total = 0
    for path in glob.glob(f"/proc/{pid}/task/*/schedstat"):
        try:
            with open(path) as schedstat:
                total += int(schedstat.read().split()[0])
        except (FileNotFoundError, ProcessLookupError):
            pass  # a thread that ended meanwhile
    return total


def run_counts(pid):
    """How many times each of the process's threads has been put on a core so far (the third field
    of its schedstat), by thread id. A thread with nothing to do is put on a core only when it
    wakes up."""
    counts = {}
    for path in glob.glob(f"/proc/{pid}/task/*/schedstat"):
        try:
            with open(path) as schedstat:
                counts[path.split("/")[-2]] = int(schedstat.read().split()[2])
        except (FileNotFoundError, ProcessLookupError):
            pass  # a thread that ended meanwhile
    return counts


def wake_ups(before, after):
    """The wake-ups of all the process's threads between two run_counts. A thread that started in
    between counts all of its own; one that ended in between can no longer be read, so its wake-ups
    in between are missing (the figure is then too low)."""
    return sum(count - before.get(thread, 0) for thread, count in after.items())


def wait_until(condition, seconds, what):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        result = condition()
        if result:
            return result
        time.sleep(0.005)
    raise RuntimeError(f"timed out waiting for {what}")


def monotonic(boot, near):
    """A time printed by Qt's %{time boot} (CLOCK_MONOTONIC, as time.monotonic() on Linux, to the
    millisecond) in time.monotonic()'s seconds. Qt 5 prints it from 32 bits of milliseconds, which
    wrap after 49.7 days: the time meant is the one nearest near."""
    period = 2**32 / 1000
    return boot + round((near - boot) / period) * period


def percentile(values, share):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(round(share * (len(ordered) - 1))))]


class Transcript:
    """A stand-in's timestamped output, or the agent's standard error, read as it grows."""

    LINE = re.compile(r"^\[ *(\d+\.\d+)\] (.*)$")

    def __init__(self, path):
        self.path = path
        self.seen = 0

    def skip(self):
        """Lines so far are not looked at again."""
        with open(self.path, encoding="utf-8", errors="replace") as f:
            self.seen = len(f.read().splitlines())

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

    def matches(self, pattern):
        """The timestamps and matches of all new whole lines matching pattern, in order; they are not
        looked at again."""
        with open(self.path, encoding="utf-8", errors="replace") as f:
            text = f.read()
        lines = text[:text.rfind("\n") + 1].splitlines()
        found = []
        for index in range(self.seen, len(lines)):
            line = self.LINE.match(lines[index])
            match = line and re.search(pattern, line.group(2))
            if match:
                found.append((float(line.group(1)), match))
        self.seen = max(self.seen, len(lines))
        return found


class Run:
    """One build under measurement: its stand-ins on the bus, the agent and the bare process when
    started, their outputs, and the figures measured so far."""

    def __init__(self, build, work):
        self.build, self.work = build, work
        self.figures = {}
        self.processes = []
        os.makedirs(f"{work}/state")
        self.env = dict(os.environ, HALVO_LOG_FILE=f"{work}/events.jsonl", QT_QPA_PLATFORM="offscreen",
                        XDG_STATE_HOME=f"{work}/state")
        self.agent_out = f"{work}/agent.err"
        self.daemon_out, self.riskbox_out = f"{work}/daemon.out", f"{work}/riskbox.out"
        self.start([f"{build}/standins/vorn-standin-daemon", "--timestamps"], self.daemon_out)
        self.start([f"{build}/standins/vorn-standin-riskbox", "--headless", "--timestamps"], self.riskbox_out)
        wait_until(lambda: subprocess.run([f"{build}/standins/vorn-standin-ctl", "riskbox", "boxes"], env=self.env,
                                          capture_output=True).returncode == 0, 10, "the stand-ins")
        self.daemon, self.riskbox = Transcript(self.daemon_out), Transcript(self.riskbox_out)

    def start(self, command, output=os.devnull, env=None, errors=None):
        """Standard error goes to the file errors, or where the benchmark's own goes."""
        with open(output, "w") as out, open(errors or os.devnull, "w") as err:
            process = subprocess.Popen(command, env=env or self.env, stdout=out, stderr=err if errors else None)
        self.processes.append(process)
        return process

    def stop(self, process):
        process.terminate()
        process.wait(timeout=10)
        self.processes.remove(process)

    def close(self):
        for process in list(self.processes):
            self.stop(process)

    def journals(self):
        """The journal's files: one per running agent, "journal2-MACHINE-SLOT" (not the ".new" copy of
        one being compacted)."""
        paths = glob.glob(f"{self.work}/state/vorn-defender/journal2-*")
        return [path for path in paths if not path.endswith(".new")]

    def journaled(self):
        """The threats the journal's files hold ("A" records)."""
        count = 0
        for path in self.journals():
            try:
                with open(path, "rb") as records:
                    count += sum(1 for record in records if record.startswith(b"A "))
            except FileNotFoundError:
                pass  # taken over meanwhile
        return count

    def ctl(self, *args):
        return subprocess.run([f"{self.build}/standins/vorn-standin-ctl", *args], env=self.env, check=True,
                              capture_output=True, text=True).stdout

    def rounds(self, count):
        """count cleared-file notices answered Trust, then Confirm: the milliseconds from each
        signal_sysPop to its notice's show, and from each confirmation's signalResult to the
        add_trustFile call."""
        to_show, to_call = [], []
        self.daemon.skip()
        self.riskbox.skip()
        for n in range(count):
            self.ctl("daemon", "emit", "signal_sysPop", f"/bench/file-{n}.exe")
            emitted = wait_until(lambda: self.daemon.find(r"emitted signal_sysPop "), 10, "the emission")[0]
            shown, box = wait_until(lambda: self.riskbox.find(r"box (\d+) shown"), 10, "the notice")
            to_show.append((shown - emitted) * 1000)
            self.ctl("riskbox", "result", box.group(1), "1")
            confirm = wait_until(lambda: self.riskbox.find(r"box (\d+) shown"), 10, "the confirmation")[1].group(1)
            self.ctl("riskbox", "result", confirm, "2")
            answered = wait_until(lambda: self.riskbox.find(r"signalResult\(\d+, 2, .*sent on request"), 10,
                                  "the answer")[0]
            called = wait_until(lambda: self.daemon.find(r"call add_trustFile "), 10, "the daemon call")[0]
            to_call.append((called - answered) * 1000)
        return to_show, to_call


# The measurements, in the order they run on each build. The bare process answers the same signals
# as the agent, so the two never listen at the same time: it makes half its rounds before the agent
# starts and half after it ends, so that other load on the machine, which drifts, weighs on both.

def bare_process(run):
    with open(f"{run.work}/baseline.out", "w"):
        pass
    baseline = run.start([f"{run.build}/bench/vorn-bench-baseline"], f"{run.work}/baseline.out")
    wait_until(lambda: "ready" in open(f"{run.work}/baseline.out").read(), 20, "the bare process")
    if "bare_rss" not in run.figures:
        time.sleep(2)  # as long as the agent is given below after connecting
        run.figures["bare_rss"] = rss_kib(baseline.pid)
    show, call = run.rounds(ROUNDS // 2)
    run.figures["bare_show"] = run.figures.get("bare_show", []) + show
    run.figures["bare_call"] = run.figures.get("bare_call", []) + call
    run.stop(baseline)


def agent_start(run):
    """The agent, with the journal thread's debug line after each write on its standard error, each
    line stamped with the monotonic clock."""
    env = dict(run.env, QT_LOGGING_RULES="vorn.bridge.debug=true", QT_MESSAGE_PATTERN="[%{time boot}] %{message}",
               QT_FORCE_STDERR_LOGGING="1")
    agent = run.start([f"{run.build}/app/vorn-virus-agent"], env=env, errors=run.agent_out)
    run.agent = Transcript(run.agent_out)
    run.figures["agent_pid"] = agent.pid
    log = run.env["HALVO_LOG_FILE"]
    wait_until(lambda: os.path.exists(log) and "all signal have been connected" in open(log).read(), 20,
               "the agent")
    time.sleep(2)
    run.figures["agent_rss"] = rss_kib(agent.pid)


def agent_idle(run):
    pid = run.figures["agent_pid"]
    before, runs = cpu_ns(pid), run_counts(pid)
    time.sleep(IDLE_SECONDS)
    run.figures["idle_cpu"] = (cpu_ns(pid) - before) / 1e9 / IDLE_SECONDS * 100
    run.figures["idle_wake_ups"] = wake_ups(runs, run_counts(pid)) / IDLE_SECONDS


def agent_rounds(run):
    run.figures["agent_show"], run.figures["agent_call"] = run.rounds(ROUNDS)


def agent_floods(run):
    """FLOODS floods of FLOOD threats each. The first also pays for one-off growth of the allocator's
    arenas (the messages in flight), which glibc keeps; what each queued threat keeps is the growth
    of the agent's own data over the floods after it, averaged, since the queue's containers grow by
    doubling and so not evenly from flood to flood. Every threat is on disk before it is queued: a
    flood is queued when the journal holds all of it."""
    pid = run.figures["agent_pid"]
    assert len(THREAT_NAME) == 30 and len(THREAT_PATH) == 60

    previous = [None]

    def settled():
        now = anonymous_kib(pid)
        stable, previous[0] = now == previous[0], now
        return stable

    growth, queued, after_first = [], [], None
    for n in range(FLOODS):
        before, started = anonymous_kib(pid), time.monotonic()
        run.ctl("daemon", "emit-many", str(FLOOD), "signal_showAuthDialog", THREAT_NAME, "", THREAT_PATH, "false")
        wait_until(lambda: run.journaled() == FLOOD * (n + 1) or time.sleep(0.05), 60, "the flood to be journaled")
        queued.append(time.monotonic() - started)
        wait_until(lambda: settled() or time.sleep(0.5), 60, "the flood to be queued")
        growth.append((anonymous_kib(pid) - before) * 1024 / FLOOD)
        after_first = after_first or anonymous_kib(pid)
    run.figures["flood_seconds"], run.figures["flood_growth"] = queued, growth
    run.figures["threat_bytes"] = (anonymous_kib(pid) - after_first) * 1024 / ((FLOODS - 1) * FLOOD)
    run.figures["journal_bytes"] = sum(os.path.getsize(path) for path in run.journals()) / (FLOODS * FLOOD)


def agent_burst(run):
    """A burst of FLOOD threats announced at once, on top of the floods' threats still queued: the
    time from the last announcement (the EmitMany call returned) until the journal has synced all of
    them, which is the time of the journal thread's debug line after the write that holds the last of
    them, and the syncs the burst took. The agent's one file only grows meanwhile: nothing is decided
    but a timed-out box now and then, far too little to compact it."""
    [journal] = run.journals()
    inode, offset, left = os.stat(journal).st_ino, os.path.getsize(journal), FLOOD
    earlier = run.agent.matches(WRITTEN)
    syncs = int(earlier[-1][1].group(2)) if earlier else 0

    def burst_end():
        """Where the burst's last threat record ends in the file, once it is there (read on from
        where the last look stopped, whole records only)."""
        nonlocal offset, left
        with open(journal, "rb") as records:
            records.seek(offset)
            for record in records:
                if not record.endswith(b"\n"):
                    break
                offset += len(record)
                left -= record.startswith(b"A ")
                if left == 0:
                    return offset
        return None

    def reported(end):
        """The journal thread's line after the first write that took the file to end or past it: the
        write that holds the record ending there."""
        return next((line for line in run.agent.matches(WRITTEN) if int(line[1].group(1)) >= end), None)

    run.ctl("daemon", "emit-many", str(FLOOD), "signal_showAuthDialog", THREAT_NAME, "", THREAT_PATH, "false")
    announced = time.monotonic()
    end = wait_until(lambda: burst_end() or time.sleep(0.05), 60, "the burst to be journaled")
    written = wait_until(lambda: reported(end) or time.sleep(0.05), 10, "the write of the burst's last threat")
    if os.stat(journal).st_ino != inode:
        raise RuntimeError(f"{journal} was compacted during the burst")
    run.figures["burst_seconds"] = monotonic(written[0], announced) - announced
    run.figures["burst_syncs"] = int(written[1].group(2)) - syncs


def agent_end(run):
    run.stop(next(process for process in run.processes if process.pid == run.figures["agent_pid"]))


MEASUREMENTS = [bare_process, agent_start, agent_idle, agent_rounds, agent_floods, agent_burst, agent_end,
                bare_process]


def latency(values):
    return f"{statistics.median(values):.2f} / {percentile(values, 0.95):.2f} ms"


def ratio(f, agent, bare):
    """The agent's figure over the bare process's; of latencies, their medians."""
    typical = lambda value: statistics.median(value) if isinstance(value, list) else value
    return typical(f[agent]) / typical(f[bare])


# Rows of the table: a label, the figure as text, and the target with its check (None: no target).
ROWS = [
    ("resident memory after start: agent", lambda f: f"{f['agent_rss']} KiB", None),
    ("  bare Qt Widgets + D-Bus process", lambda f: f"{f['bare_rss']} KiB", None),
    ("  agent / bare", lambda f: f"{ratio(f, 'agent_rss', 'bare_rss'):.2f}",
     ("at most 1.10", lambda f: ratio(f, "agent_rss", "bare_rss") <= 1.10)),
    (f"CPU while idle, over {IDLE_SECONDS} s", lambda f: f"{f['idle_cpu']:.4f}% of a core",
     ("under 0.05%", lambda f: f["idle_cpu"] < 0.05)),
    ("  wake-ups while idle", lambda f: f"{f['idle_wake_ups']:.1f} per s", None),
    ("notice: signal_sysPop -> show, p50 / p95", lambda f: latency(f["agent_show"]), None),
    ("  bare QtDBus client, same calls", lambda f: latency(f["bare_show"]), None),
    ("  agent / bare, p50", lambda f: f"{ratio(f, 'agent_show', 'bare_show'):.2f}",
     ("at most 1.2", lambda f: ratio(f, "agent_show", "bare_show") <= 1.2)),
    ("answer: signalResult -> daemon call", lambda f: latency(f["agent_call"]), None),
    ("  bare QtDBus client, same call", lambda f: latency(f["bare_call"]), None),
    ("  agent / bare, p50 (events written first)", lambda f: f"{ratio(f, 'agent_call', 'bare_call'):.2f}", None),
    (f"burst of {FLOOD}: last announced -> all synced", lambda f: f"{f['burst_seconds'] * 1000:.0f} ms", None),
    ("  syncs for the burst", lambda f: f"{f['burst_syncs']}", None),
    (f"flood of {FLOOD} queued and journaled, last / first",
     lambda f: f"{f['flood_seconds'][-1]:.2f} / {f['flood_seconds'][0]:.2f} s", None),
    ("journal on disk per undecided threat", lambda f: f"{f['journal_bytes']:.0f} bytes", None),
    (f"memory per queued threat, floods 2-{FLOODS}", lambda f: f"{f['threat_bytes']:.0f} bytes",
     ("at most 512 bytes", lambda f: f["threat_bytes"] <= 512)),
    ("  growth in each flood", lambda f: " / ".join(f"{bytes:.0f}" for bytes in f["flood_growth"]), None),
]


def main():
    builds = [argument.split("=", 1) for argument in sys.argv[1:]]
    if not builds or any(len(build) != 2 for build in builds):
        sys.exit(__doc__)
    columns = {}
    for label, build in builds:
        work = tempfile.mkdtemp(prefix="vorn-bench.")
        run = Run(build, work)
        try:
            for measure in MEASUREMENTS:
                print(f"{label}: {measure.__name__.replace('_', ' ')}", file=sys.stderr, flush=True)
                measure(run)
        finally:
            run.close()
            subprocess.run(["rm", "-rf", work])
        columns[label] = run.figures

    width = max(len(row[0]) for row in ROWS)
    cells = {label: [text(figures) for _, text, _ in ROWS] for label, figures in columns.items()}
    widths = {label: max(len(label), *(len(cell) + 2 for cell in cells[label])) for label in columns}
    print(f"{'':<{width}}  " + "  ".join(f"{label:<{widths[label]}}" for label in columns) + "  target")
    missed = []
    for index, (name, _, target) in enumerate(ROWS):
        line = f"{name:<{width}}  "
        for label, figures in columns.items():
            met = target is None or target[1](figures)
            if not met:
                missed.append(f"{name.strip()} ({label})")
            line += f"{cells[label][index] + ('' if met else ' !'):<{widths[label]}}  "
        print((line + (target[0] if target else "")).rstrip())
    print("targets: " + ("all met" if not missed else "missed: " + "; ".join(missed)))
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
