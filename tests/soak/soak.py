#!/usr/bin/env python3
"""Soak run of the agent: 19 watched logs growing at mixed rates for a long
time, a collector that takes the handed-off event files away, and at the end
an exact account of what fired.

Every line the writer produces carries a unique id ("nn-sssssss": watched log
and sequence number) and the writer alone decides whether the line should
fire, so the account does not depend on the agent: each id that should fire
must appear in exactly one event of its watched log, and no other id may
appear. Resident memory (VmRSS) and open descriptors of the agent are sampled
from /proc every few seconds and must not grow after the first minute; no
"ing_" file may be left behind except the one of the cycle in progress.

The writer keeps to what the agent promises and stays clear of what it does
not (lines over the 100-events-per-log-per-cycle ceiling, lines appended to a
file after its last cycle once the name has moved on): fire rates stay far
below the ceiling, and before a file is renamed, truncated or left for a new
name the writer waits until the agent has reported the last firing line of
it. Should a cycle still pass the ceiling, the report says so.

Usage: soak.py --agent PATH [--duration SECONDS] [--workdir DIR] [--keep]
Exit status 0 when every check passed, 1 otherwise.
"""
import argparse
import collections
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

TILDE = "\x03\x1f\x7e"
BAR = "\x03\x1f\x7c"
BAR_BYTES = BAR.encode("latin-1")
EVENT_CEILING = 100  # events of one watched log in one cycle before evaluation stops
SAMPLE_SECONDS = 5
WARMUP_SECONDS = 60
CATCH_UP_TIMEOUT = 30  # seconds to wait for the agent before a rename or truncation


class Log:
    """One watched log: how its lines look, how fast it grows, what fires."""

    def __init__(self, index, name, rate, fire_share, kind="plain", delimitor=",{~}NULL", log_type=2,
                 check_type=1, text="2{~}1{~}FIRE{~}1", number="NULL", pattern="NULL", shares=None):
        self.index = index
        self.name = name            # configured name (relative to the work directory)
        self.rate = rate            # lines per second
        self.fire_share = fire_share
        self.kind = kind
        self.delimitor = delimitor
        self.log_type = log_type
        self.check_type = check_type
        self.text = text
        self.number = number
        self.pattern = pattern
        self.shares = shares        # index of another entry that reads the same file
        self.seq = 0
        self.budget = 0.0
        self.path = None            # file written now
        self.generation = 0
        self.pending_tail = None    # second half of a line written in two steps
        self.last_fire = None       # id of the last firing line written
        self.paused_until_seen = None
        self.next_action = None
        self.expected = set()       # ids that must fire
        self.written = 0
        self.bytes = 0


def readable(value):
    return value.replace("{~}", TILDE).replace("{|}", BAR)


def build_logs():
    logs = []
    # 1-8: plain comma-separated logs from 0.5 to 150 lines a second.
    for i, (rate, share) in enumerate([(0.5, 0.5), (2, 0.3), (5, 0.2), (10, 0.2), (25, 0.1), (50, 0.05),
                                       (100, 0.05), (150, 0.03)], start=1):
        logs.append(Log(i, f"logs/plain{i:02d}.log", rate, share))
    # 2 and 6 compare a number instead of a text.
    logs[1].text = "NULL"
    logs[1].number = "3{~}2{~}90{~}1{~}v={~}%"
    logs[1].kind = "numeric"
    logs[5].text = "NULL"
    logs[5].number = "3{~}2{~}90.5{~}2{~}{~}"
    logs[5].kind = "numeric"
    # 4 starts from the end of what is there (log type 0).
    logs[3].log_type = 0
    # 9, 10: lines of about 100 KB.
    logs.append(Log(9, "logs/long09.log", 0.5, 0.5, kind="long"))
    logs.append(Log(10, "logs/long10.log", 0.2, 0.5, kind="long"))
    # 11, 12: binary bytes and NUL bytes in the lines.
    logs.append(Log(11, "logs/binary11.log", 8, 0.3, kind="binary"))
    logs.append(Log(12, "logs/nul12.log", 8, 0.3, kind="nul"))
    # 13: rotated by renaming (app.log -> app.log.N, a new app.log).
    logs.append(Log(13, "logs/rotated13.log", 6, 0.3, kind="rotate"))
    # 14: truncated now and then.
    logs.append(Log(14, "logs/truncated14.log", 6, 0.3, kind="truncate"))
    # 15: a dated name that moves on every minute.
    logs.append(Log(15, "logs/dated15_[YYYYMMDD]-[hhmm].log", 4, 0.3, kind="dated"))
    # 16: a wildcard name; the writer moves to a newer file now and then.
    logs.append(Log(16, "logs/wild16_*.log", 4, 0.3, kind="wildcard", check_type=0))
    # 17: two delimiters, and lines written in two steps.
    logs.append(Log(17, "logs/split17.log", 6, 0.3, kind="split", delimitor=" {~}\t"))
    # 18, 19: one file, two entries with different rules; 18 also filters lines.
    logs.append(Log(18, "logs/shared.log", 12, 0.25, kind="shared", pattern="1{|}(NOT:skip)"))
    logs.append(Log(19, "logs/shared.log", 0, 0.0, kind="shared", text="NULL",
                    number="3{~}1{~}90{~}1{~}{~}", shares=18))
    return logs


def config_text(workdir, logs):
    out = [f"LOG_PATH={workdir}/log/", "LOG_MODE=NORMAL", "LOG_VALIDDAY=7", "PRINT=OFF",
           f"OUTPUT_PATH={workdir}/out/", "LINE_WAIT_CNT=10"]
    for log in logs:
        p = f"LOG{log.index:02d}_"
        out += [f"{p}NAME={workdir}/{log.name}", f"{p}TYPE={log.log_type}", f"{p}CHECK_TYPE={log.check_type}",
                f"{p}SECLOG_LEVEL_CNT=NULL", f"{p}DELIMITOR={readable(log.delimitor)}",
                f"{p}NUMBER_PATTERN={readable(log.number)}", f"{p}CHAR_PATTERN={readable(log.text)}",
                f"{p}DATE_PATTERN=NULL", f"{p}PATTERN={readable(log.pattern)}"]
    return "\n".join(out) + "\n"


class Soak:
    def __init__(self, args):
        self.args = args
        self.workdir = args.workdir or tempfile.mkdtemp(prefix="columnlogs_soak_")
        for sub in ("log", "out", "logs", "collected"):
            os.makedirs(os.path.join(self.workdir, sub), exist_ok=True)
        self.logs = build_logs()
        self.by_index = {log.index: log for log in self.logs}
        self.rng = random.Random(20240627)
        self.seen = collections.Counter()          # (index, id) -> events
        self.seen_ids_by_index = collections.defaultdict(set)
        self.unparsed = []
        self.cycles = 0
        self.max_per_cycle = collections.Counter()  # index -> most events in one cycle
        self.ceiling_hits = []
        self.samples = []                           # (t, rss_kb, fds, ing_files)
        self.failures = []
        self.catch_up_waits = []
        self.agent = None
        self.start = None

    # ---- writing ----
    def path_for(self, log, now):
        if log.kind == "dated":
            return os.path.join(self.workdir, time.strftime("logs/dated15_%Y%m%d-%H%M.log", time.localtime(now)))
        if log.kind == "wildcard":
            return os.path.join(self.workdir, f"logs/wild16_{log.generation:04d}.log")
        return os.path.join(self.workdir, log.name)

    def make_line(self, log, fire):
        log.seq += 1
        ident = f"{log.index:02d}-{log.seq:07d}"
        mark = "FIRE" if fire else "calm"
        if log.kind == "numeric":
            value = self.rng.randint(91, 99) if fire else self.rng.randint(0, 90)
            if log.index == 6:
                value = f"{self.rng.uniform(90.6, 99):.2f}" if fire else f"{self.rng.uniform(0, 90.4):.2f}"
                return ident, f"{ident},x,{value}\n".encode()
            return ident, f"{ident},x,v={value}%\n".encode()
        if log.kind == "long":
            body = "".join(self.rng.choice("abcdefghij0123456789 ;:") for _ in range(64)) * 1600
            return ident, f"{ident},{mark},{body}\n".encode()
        if log.kind == "binary":
            noise = bytes(self.rng.choice([b for b in range(1, 256) if b != 0x0A]) for _ in range(120))
            return ident, f"{ident},{mark},".encode() + noise + BAR_BYTES + b"\n"
        if log.kind == "nul":
            # A NUL byte ends what the agent sees of a line. Some lines hide
            # their mark behind one, and those must not fire.
            if self.rng.random() < 0.2:
                return (ident, False, False), f"{ident},\x00FIRE,after nul\n".encode()
            return ident, f"{ident},{mark},before\x00{'x' * self.rng.randint(0, 300)}\n".encode()
        if log.kind == "split":
            return ident, f"{ident} {mark}\tpayload {'y' * self.rng.randint(0, 600)}\n".encode()
        if log.kind == "shared":
            # Entry 18 fires on the mark, but only for lines its line pattern
            # lets through (no "skip"); entry 19 fires on the number alone.
            high = fire or self.rng.random() < 0.2
            skip = fire and self.rng.random() < 0.3
            value = self.rng.randint(91, 99) if high else self.rng.randint(0, 90)
            return (ident, fire and not skip, high), f"{ident},{mark},{value}{',skip' if skip else ''}\n".encode()
        return ident, f"{ident},{mark},payload {'z' * self.rng.randint(0, 200)}\n".encode()

    def append(self, path, data):
        with open(path, "ab") as f:
            f.write(data)

    def write_line(self, log, now, force_fire=False):
        if log.pending_tail is not None:
            self.append(*log.pending_tail)
            log.pending_tail = None
        fire = force_fire or self.rng.random() < log.fire_share
        ident, data = self.make_line(log, fire)
        also_19 = False
        if isinstance(ident, tuple):
            ident, fire, also_19 = ident
        path = self.path_for(log, now)
        if log.kind == "split" and self.rng.random() < 0.3:
            cut = self.rng.randint(1, len(data) - 1)
            self.append(path, data[:cut])
            log.pending_tail = (path, data[cut:])
        else:
            self.append(path, data)
        log.written += 1
        log.bytes += len(data)
        if also_19:
            self.by_index[19].expected.add(ident)
            self.by_index[19].last_fire = ident
        if fire:
            log.expected.add(ident)
            log.last_fire = ident

    def seen_id(self, log, ident):
        return ident in self.seen_ids_by_index[log.index]

    def step_writers(self, now, dt):
        for log in self.logs:
            if log.rate <= 0:
                continue
            if log.pending_tail is not None:
                self.append(*log.pending_tail)
                log.pending_tail = None
            if log.paused_until_seen is not None:
                ident, since, action = log.paused_until_seen
                if self.seen_id(log, ident) or now - since > CATCH_UP_TIMEOUT:
                    if not self.seen_id(log, ident):
                        self.failures.append(f"log {log.index}: agent did not report {ident} within "
                                             f"{CATCH_UP_TIMEOUT}s before the {action}")
                    self.catch_up_waits.append(now - since)
                    self.do_action(log, action, now)
                    log.paused_until_seen = None
                continue
            if log.kind == "dated":
                second = time.localtime(now).tm_sec
                if second >= 50:  # the name moves on at the full minute: leave the agent time to read to the end
                    continue
            if log.next_action is not None and now >= log.next_action[0]:
                # Finish the file with a firing line and wait for its event.
                self.write_line(log, now, force_fire=True)
                log.paused_until_seen = (log.last_fire, now, log.next_action[1])
                log.next_action = None
                continue
            log.budget += log.rate * dt
            while log.budget >= 1.0:
                log.budget -= 1.0
                self.write_line(log, now)

    def do_action(self, log, action, now):
        path = self.path_for(log, now)
        if action == "rename":
            log.generation += 1
            os.rename(path, f"{path}.{log.generation}")
            open(path, "ab").close()
            log.next_action = (now + 50, "rename")
        elif action == "truncate":
            with open(path, "r+b") as f:
                f.truncate(0)
            log.next_action = (now + 40, "truncate")
        elif action == "new name":
            log.generation += 1
            log.next_action = (now + 70, "new name")

    # ---- collecting ----
    def collect(self):
        out = os.path.join(self.workdir, "out")
        names = os.listdir(out)
        for name in sorted(n for n in names if n.startswith("out_")):
            src = os.path.join(out, name)
            dst = os.path.join(self.workdir, "collected", name)
            os.rename(src, dst)
            self.read_events(dst)
            os.unlink(dst)
        return sum(1 for n in names if n.startswith("ing_"))

    ORIGINAL = re.compile(rb"^(\d+)\|([124])\x03\x1f\x7c(\d+)\x03\x1f\x7c(.*)$", re.S)
    IDENT = re.compile(rb"ORIGINAL_MSG:(\d\d-\d{7})[, ]")

    def read_events(self, path):
        with open(path, "rb") as f:
            data = f.read()
        self.cycles += 1
        per_log = collections.Counter()
        for line in data.split(b"\n")[:-1]:
            m = self.ORIGINAL.match(line)
            ident = self.IDENT.search(line) if m else None
            if not m or not ident:
                self.unparsed.append(line[:200])
                continue
            index = int(m.group(1))
            key = ident.group(1).decode()
            self.seen[(index, key)] += 1
            self.seen_ids_by_index[index].add(key)
            per_log[index] += 1
        for index, count in per_log.items():
            self.max_per_cycle[index] = max(self.max_per_cycle[index], count)
            if count > EVENT_CEILING:
                self.ceiling_hits.append((os.path.basename(path), index, count))

    # ---- sampling ----
    def sample(self, now, ing_files):
        pid = self.agent.pid
        rss = None
        try:
            with open(f"/proc/{pid}/status") as f:
                for line in f:
                    if line.startswith("VmRSS:"):
                        rss = int(line.split()[1])
            fds = len(os.listdir(f"/proc/{pid}/fd"))
        except OSError:
            self.failures.append(f"agent gone at {now - self.start:.0f}s")
            return False
        self.samples.append((now - self.start, rss, fds, ing_files))
        return True

    # ---- the run ----
    def prefill(self):
        now = time.time()
        for log in self.logs:
            if log.rate <= 0:
                continue
            path = self.path_for(log, now)
            if log.log_type == 0:
                # What a type-0 log holds at the first look is skipped by design.
                for n in range(200):
                    self.append(path, f"{log.index:02d}-9{n:06d},FIRE,before the agent\n".encode())
            else:
                for _ in range(20):
                    self.write_line(log, now)
            if log.kind == "rotate":
                log.next_action = (now + 50, "rename")
            elif log.kind == "truncate":
                log.next_action = (now + 40, "truncate")
            elif log.kind == "wildcard":
                log.next_action = (now + 70, "new name")

    def run(self):
        conf = os.path.join(self.workdir, "agent.conf")
        with open(conf, "w", encoding="latin-1") as f:
            f.write(config_text(self.workdir, self.logs))
        self.prefill()
        err = open(os.path.join(self.workdir, "agent.err"), "wb")
        self.agent = subprocess.Popen([self.args.agent, "agent.conf"], cwd=self.workdir, stdout=err, stderr=err,
                                      stdin=subprocess.DEVNULL)
        alive = os.path.join(self.workdir, "LoggerAlive")
        deadline = time.time() + 30
        while not os.path.exists(alive):
            if time.time() > deadline or self.agent.poll() is not None:
                self.failures.append("agent did not start")
                return
            time.sleep(0.05)
        time.sleep(1.5)  # the first cycle has had its look at every log
        self.start = time.time()
        last = self.start
        last_sample = 0.0
        end = self.start + self.args.duration
        while True:
            now = time.time()
            if now >= end:
                break
            self.step_writers(now, now - last)
            last = now
            ing = self.collect()
            if now - last_sample >= SAMPLE_SECONDS:
                last_sample = now
                if not self.sample(now, ing):
                    return
            time.sleep(0.02)
        # Let the agent read everything that was written, then stop it.
        for log in self.logs:
            if log.pending_tail is not None:
                self.append(*log.pending_tail)
                log.pending_tail = None
        drain_end = time.time() + 60
        while time.time() < drain_end:
            self.collect()
            if all(log.last_fire is None or self.seen_id(log, log.last_fire) for log in self.logs):
                break
            time.sleep(0.2)
        time.sleep(3)
        self.collect()
        self.sample(time.time(), self.collect())
        self.agent.send_signal(signal.SIGTERM)
        self.agent.wait(10)
        self.collect()

    # ---- the account ----
    def report(self):
        lines = []
        ok = True
        elapsed = self.samples[-1][0] if self.samples else 0
        lines.append(f"duration: {elapsed:.0f} s of writing, {len(self.samples)} samples, {self.cycles} event files")
        total_written = sum(log.written for log in self.logs)
        total_bytes = sum(log.bytes for log in self.logs)
        lines.append(f"written: {total_written} lines, {total_bytes / 1e6:.1f} MB into 19 watched logs")
        missing_total = dup_total = unexpected_total = expected_total = 0
        lines.append("log  lines   bytes(MB)  should fire  fired once  missing  duplicated  unexpected  max/cycle")
        for log in self.logs:
            got = {key for (index, key) in self.seen if index == log.index}
            missing = log.expected - got
            unexpected = got - log.expected
            dups = [key for key in got if self.seen[(log.index, key)] > 1]
            once = len([key for key in log.expected if self.seen[(log.index, key)] == 1])
            missing_total += len(missing)
            dup_total += len(dups)
            unexpected_total += len(unexpected)
            expected_total += len(log.expected)
            written = f"{log.written:6d} {log.bytes / 1e6:10.2f}" if log.shares is None else f"(file of {log.shares:02d})"
            lines.append(f"{log.index:3d} {written:>17} {len(log.expected):12d} "
                         f"{once:11d} {len(missing):8d} {len(dups):11d} {len(unexpected):11d} "
                         f"{self.max_per_cycle[log.index]:10d}")
            for key in sorted(missing)[:5]:
                lines.append(f"      missing {key}")
            for key in sorted(unexpected)[:5]:
                lines.append(f"      unexpected {key}")
        lines.append(f"events: {expected_total} should fire, missing {missing_total}, duplicated {dup_total}, "
                     f"unexpected {unexpected_total}, unparsed event lines {len(self.unparsed)}")
        if missing_total or dup_total or unexpected_total or self.unparsed:
            ok = False
        if self.ceiling_hits:
            lines.append(f"cycles over the {EVENT_CEILING}-event ceiling: {self.ceiling_hits[:5]}")
            ok = False
        if self.catch_up_waits:
            lines.append(f"catch-up waits before rename/truncate/new name: {len(self.catch_up_waits)}, "
                         f"longest {max(self.catch_up_waits):.1f} s")

        after = [s for s in self.samples if s[0] >= WARMUP_SECONDS]
        first = [s for s in self.samples if s[0] < WARMUP_SECONDS]
        if after and first:
            base_rss = max(s[1] for s in first)
            base_fds = max(s[2] for s in first)
            # Growth: the last quarter against the second quarter of the run.
            q = max(1, len(after) // 4)
            early = max(s[1] for s in after[:q])
            late = max(s[1] for s in after[-q:])
            lines.append(f"rss KB: first minute max {base_rss}, after it min {min(s[1] for s in after)} "
                         f"max {max(s[1] for s in after)}; first quarter after warm-up max {early}, "
                         f"last quarter max {late}")
            lines.append(f"open descriptors: first minute max {base_fds}, after it min "
                         f"{min(s[2] for s in after)} max {max(s[2] for s in after)}")
            # A leak lifts the floor: the smallest reading of the last quarter
            # above the largest of the first quarter after warm-up (1 MB of
            # allocator slack), or descriptors above the first minute's.
            if min(s[1] for s in after[-q:]) > early + 1024:
                lines.append("FAIL: resident memory grows")
                ok = False
            if min(s[2] for s in after[-q:]) > base_fds or max(s[2] for s in after) > base_fds + 2:
                lines.append("FAIL: open descriptors grow")
                ok = False
        most_ing = max((s[3] for s in self.samples), default=0)
        left = [n for n in os.listdir(os.path.join(self.workdir, "out")) if n.startswith("ing_")]
        lines.append(f"ing_ files: at most {most_ing} at a sample, {len(left)} left after the stop")
        if most_ing > 1 or len(left) > 1:
            ok = False
        for failure in self.failures:
            lines.append(f"FAIL: {failure}")
            ok = False
        lines.append("RESULT: " + ("PASS" if ok else "FAIL"))
        return ok, "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--agent", required=True)
    parser.add_argument("--duration", type=float, default=600)
    parser.add_argument("--workdir")
    parser.add_argument("--keep", action="store_true", help="keep the work directory")
    args = parser.parse_args()
    soak = Soak(args)
    try:
        soak.run()
    finally:
        if soak.agent is not None and soak.agent.poll() is None:
            soak.agent.kill()
            soak.agent.wait()
    ok, text = soak.report()
    print(text)
    with open(os.path.join(soak.workdir, "samples.tsv"), "w") as f:
        f.write("seconds\trss_kb\tfds\ting_files\n")
        for s in soak.samples:
            f.write(f"{s[0]:.0f}\t{s[1]}\t{s[2]}\t{s[3]}\n")
    if args.keep:
        print(f"work directory kept: {soak.workdir}")
    elif args.workdir is None:
        shutil.rmtree(soak.workdir, ignore_errors=True)
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
