#!/usr/bin/env python3
"""The mutation check: how many small, noticeable faults of the agent does the test suite catch?

    scripts/mutate.py                 every mutant of scripts/mutants.txt (an hour or more)
    scripts/mutate.py --only REGEX    the mutants whose file or description matches REGEX
    scripts/mutate.py --check         only checks that every mutant applies to today's sources
    scripts/mutate.py --ratio         only prints the test and code line counts
    scripts/mutate.py --work DIR      works in DIR instead of build-mutate (two runs side by side)

The working tree (committed or not) is copied to build-mutate/src and built in build-mutate/build
without -Werror, so a mutant that merely warns is still tested. The unmutated suite must pass
there first. Then, for each mutant: apply it, rebuild incrementally, run the whole suite with
CTest (stopping at the first failure), put the file back. A mutant is KILLED when a test fails,
SURVIVED when the suite passes, NOBUILD when it does not compile. Each mutant's CTest output is
kept in build-mutate/logs/. The test that killed a mutant is remembered (build-mutate/killers.txt)
and runs alone first next time: a mutant it still kills needs no run of the whole suite.
"""

import argparse
import os
import re
import shutil
import signal
import subprocess
import sys
import time

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
WORK = SRC = BUILD = LOGS = KILLERS = ""


def use_work(folder):
    global WORK, SRC, BUILD, LOGS, KILLERS
    WORK = os.path.abspath(folder)
    SRC, BUILD, LOGS = (os.path.join(WORK, name) for name in ("src", "build", "logs"))
    KILLERS = os.path.join(WORK, "killers.txt")


class Mutant:
    def __init__(self, path, occurrence, description, old, new, line):
        self.path, self.occurrence, self.description = path, occurrence, description
        self.old, self.new, self.line = old, new, line

    def name(self):
        return "%s:%d" % (self.path, self.line)


def parse(listing):
    """Blocks of '[file] what a peer or a user would notice', '- old' and '+ new' lines.
    '[file#2]' mutates the second occurrence of the old text. Lines starting with '#' are notes."""
    mutants, current = [], None
    with open(listing, encoding="utf-8") as lines:
        for number, raw in enumerate(lines, 1):
            line = raw.rstrip("\n")
            if not line.strip() or line.startswith("#"):
                continue
            header = re.match(r"^\[([^\]#]+)(?:#(\d+))?\]\s*(.*)$", line)
            if header:
                current = Mutant(header.group(1), int(header.group(2) or 1), header.group(3), [], [], number)
                mutants.append(current)
            elif current and (line[:2] in ("- ", "+ ") or line in ("-", "+")):
                (current.old if line[0] == "-" else current.new).append(line[2:])
            else:
                sys.exit("%s:%d: not a mutant line: %s" % (listing, number, line))
    for mutant in mutants:
        if not mutant.old or not mutant.description:
            sys.exit("%s:%d: a mutant needs a description and an old text" % (listing, mutant.line))
        mutant.old, mutant.new = "\n".join(mutant.old), "\n".join(mutant.new)
    return mutants


def mutated(mutant, text):
    """The text with the mutant applied, or None when the old text is not there."""
    at = -1
    for _ in range(mutant.occurrence):
        at = text.find(mutant.old, at + 1)
        if at < 0:
            return None
    return text[:at] + mutant.new + text[at + len(mutant.old):]


def counted_lines(paths, comment):
    total = 0
    for path in paths:
        with open(os.path.join(TOP, path), encoding="utf-8", errors="replace") as source:
            total += sum(1 for line in source if not comment.match(line))
    return total


def ratio():
    files = subprocess.run(["git", "ls-files"], cwd=TOP, capture_output=True, text=True, check=True).stdout.split()
    code = [f for f in files if f.endswith((".cpp", ".h", ".c")) and not re.search(r"(^|/)(tests?|autotests)/", f)]
    tests = [f for f in files if f.startswith("tests/") and not f.endswith((".conf", ".supp"))]
    code_lines = counted_lines(code, re.compile(r"^\s*(//.*)?$"))
    test_lines = counted_lines(tests, re.compile(r"^\s*(//.*|#.*)?$"))
    return "test lines %d, code lines %d: %.1f%%" % (test_lines, code_lines, 100.0 * test_lines / code_lines)


def run(command, log=None, cwd=None):
    with open(log, "w") if log else open(os.devnull, "w") as out:
        # A group of its own, so that stopping this script stops everything the command started (a
        # suite's buses, peers and agents), not just the command, and gives their scripts a TERM to
        # clean up on.
        child = subprocess.Popen(command, cwd=cwd, stdout=out, stderr=subprocess.STDOUT, start_new_session=True)
        try:
            return child.wait()
        except BaseException:
            os.killpg(child.pid, signal.SIGTERM)
            child.wait()
            raise


def copy_tree():
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=TOP,
                            capture_output=True, check=True).stdout.split(b"\0")
    for name in (n.decode() for n in listed if n):
        source, target = os.path.join(TOP, name), os.path.join(SRC, name)
        if not os.path.isfile(source):
            continue
        os.makedirs(os.path.dirname(target), exist_ok=True)
        # Unchanged files keep their time stamps, so a second run rebuilds only what changed; a
        # changed one gets a new time stamp, never its source's, which may be older than what the
        # last run built from the earlier content.
        if not os.path.exists(target) or open(source, "rb").read() != open(target, "rb").read():
            shutil.copyfile(source, target)
            shutil.copymode(source, target)


def build(log):
    return run(["cmake", "--build", BUILD, "-j", str(os.cpu_count() or 2)], log) == 0


def suite(log, jobs, first=None):
    """True when the suite passes; the test named first runs alone before the others."""
    ctest = ["ctest", "--test-dir", BUILD, "-j", str(jobs), "--stop-on-failure", "--output-on-failure"]
    if first:
        if run(ctest + ["-R", "^%s$" % re.escape(first)], log) != 0:
            return False
        return run(ctest + ["-E", "^%s$" % re.escape(first)], log + ".rest") == 0
    return run(ctest, log) == 0


def load_killers():
    if not os.path.exists(KILLERS):
        return {}
    with open(KILLERS, encoding="utf-8") as lines:
        return dict(line.rstrip("\n").split("\t", 1)[::-1] for line in lines if "\t" in line)


def save_killers(killers):
    with open(KILLERS, "w", encoding="utf-8") as out:
        for key, test in sorted(killers.items()):
            out.write("%s\t%s\n" % (test, key))


def first_failure(log):
    for path in (log, log + ".rest"):
        if not os.path.exists(path):
            continue
        with open(path, encoding="utf-8", errors="replace") as text:
            for line in text:
                found = re.search(r"Test\s+#\d+: (\S+) \.+\**\s*(Failed|Timeout|Exception|Subprocess)", line)
                if found:
                    return found.group(1)
    return "?"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--list", default=os.path.join(TOP, "scripts", "mutants.txt"))
    parser.add_argument("--only", default="")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--ratio", action="store_true")
    parser.add_argument("--jobs", type=int, default=2, help="tests run at once (default 2, as in CI)")
    parser.add_argument("--work", default=os.path.join(TOP, "build-mutate"), help="its folder (default build-mutate)")
    args = parser.parse_args()
    use_work(args.work)

    print(ratio())
    if args.ratio:
        return 0
    mutants = [m for m in parse(args.list) if re.search(args.only, m.path + ": " + m.description)]
    missing = []
    for mutant in mutants:
        with open(os.path.join(TOP, mutant.path), encoding="utf-8") as source:
            if mutated(mutant, source.read()) is None:
                missing.append(mutant)
    for mutant in missing:
        print("MISSING  %s: its old text is not in the file (%s)" % (mutant.name(), mutant.description))
    folders = sorted({m.path.split("/")[0] for m in mutants})
    print("%d mutants in %s" % (len(mutants), ", ".join(folders)))
    if missing or args.check:
        return 1 if missing else 0

    subprocess.run([os.path.join(TOP, "scripts", "deps.sh"), "build"], check=True)
    os.makedirs(LOGS, exist_ok=True)
    copy_tree()
    # The prefix of the presets and the packages: under another, a mutant of the install paths
    # could not be told from the original.
    configure = ["cmake", "-S", SRC, "-B", BUILD, "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_INSTALL_PREFIX=/usr"]
    if run(configure, os.path.join(LOGS, "configure.log")):
        sys.exit("configure failed: see %s" % os.path.join(LOGS, "configure.log"))
    if not build(os.path.join(LOGS, "build.log")) or not suite(os.path.join(LOGS, "unmutated.log"), args.jobs):
        sys.exit("the unmutated tree does not build or pass: see %s" % LOGS)

    killers = load_killers()
    verdicts = {"KILLED": 0, "SURVIVED": 0, "NOBUILD": 0}
    started = time.monotonic()
    for index, mutant in enumerate(mutants, 1):
        path = os.path.join(SRC, mutant.path)
        with open(path, encoding="utf-8") as source:
            original = source.read()
        log = os.path.join(LOGS, "%03d.log" % index)
        key = "%s: %s" % (mutant.path, mutant.description)
        try:
            with open(path, "w", encoding="utf-8") as target:
                target.write(mutated(mutant, original))
            if not build(log):
                verdict, detail = "NOBUILD", ""
            elif suite(log, args.jobs, killers.get(key)):
                verdict, detail = "SURVIVED", ""
                killers.pop(key, None)
            else:
                verdict, detail = "KILLED", "by " + first_failure(log)
                killers[key] = first_failure(log)
        finally:
            with open(path, "w", encoding="utf-8") as target:
                target.write(original)
        verdicts[verdict] += 1
        save_killers(killers)
        print("%-8s %3d %s: %s %s" % (verdict, index, mutant.name(), mutant.description, detail), flush=True)

    built = verdicts["KILLED"] + verdicts["SURVIVED"]
    build(os.path.join(LOGS, "restored.log"))
    print("score: %d of %d mutants killed (%.0f%%), %d survived, %d did not build; %.0f minutes" %
          (verdicts["KILLED"], built, 100.0 * verdicts["KILLED"] / max(built, 1), verdicts["SURVIVED"],
           verdicts["NOBUILD"], (time.monotonic() - started) / 60))
    return 0


if __name__ == "__main__":
    # A termination signal ends the run as Ctrl-C does: through the clean-ups, which put the mutated
    # file back and stop the running command's group.
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda received, frame: sys.exit(128 + received))
    sys.exit(main())
