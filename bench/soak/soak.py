#!/usr/bin/env python3
"""Soak run of the agent: 19 logs growing at mixed rates, a collector taking the
event files away, and an exact account: each line has a unique id ("nn-sssssss")
and the writer alone decides whether it fires; each such id must be in exactly
one event of its log, no other id may be. VmRSS and open descriptors must not
grow after the first minute; at most one "ing_" file may exist. Fire rates stay
far below the per-cycle ceiling of 100 events (a cycle over it is reported);
before a file is renamed, truncated or left for a new name the writer waits for
its last firing line. Exit status 0 when every check passed, 1 otherwise."""
import argparse, collections, os, random, re, shutil, signal, subprocess, sys, tempfile, time

EVENT_CEILING = 100  # events of one watched log in one cycle before evaluation stops
SAMPLE_SECONDS, WARMUP_SECONDS, CATCH_UP_TIMEOUT = 5, 60, 30
# kind -> (seconds between actions, action) for the logs whose file changes under the agent
ACTIONS = {"rotate": (50, "rename"), "truncate": (40, "truncate"), "wildcard": (70, "new name")}
EVENT = re.compile(rb"^(\d+)\|[124]\x03\x1f\x7c\d+\x03\x1f\x7c.*?ORIGINAL_MSG:(\d\d-\d{7})[, ]", re.S)


class Log:
    def __init__(self, index, name, rate, share, kind="plain", log_type=2, check_type=1):
        self.index, self.name, self.rate, self.share, self.kind, self.log_type, self.check_type = (
            index, name, rate, share, kind, log_type, check_type)
        self.seq = self.generation = self.written = self.bytes = 0
        self.budget = 0.0
        self.last_fire = self.paused = self.next_action = None
        self.expected = set()  # ids that must fire


def build_logs():
    # 1-12 comma-separated, 0.5 to 150 lines a second; 4 starts from the end of what is there (type 0).
    rates = [(0.5, 0.5), (2, 0.3), (5, 0.2), (10, 0.2), (25, 0.1), (50, 0.05), (100, 0.05), (150, 0.03), (8, 0.3),
             (8, 0.3), (12, 0.25), (6, 0.3)]
    logs = [Log(i, f"logs/plain{i:02d}.log", rate, share) for i, (rate, share) in enumerate(rates, start=1)]
    logs[3].log_type = 0
    return logs + [
        Log(13, "logs/long13.log", 0.5, 0.5, kind="long"),  # lines of about 100 KB
        Log(14, "logs/long14.log", 0.2, 0.5, kind="long"),
        Log(15, "logs/rotated15.log", 6, 0.3, kind="rotate"),  # renamed to .N, a new file takes its name
        Log(16, "logs/truncated16.log", 6, 0.3, kind="truncate"),
        Log(17, "logs/dated17_[YYYYMMDD]-[hhmm].log", 4, 0.3, kind="dated"),  # a new name every minute
        Log(18, "logs/wild18_*.log", 4, 0.3, kind="wildcard", check_type=0),  # now and then a newer file
        Log(19, "logs/plain19.log", 6, 0.3)]


def config_text(workdir, logs):
    out = [f"LOG_PATH={workdir}/log/", "LOG_MODE=NORMAL", "LOG_VALIDDAY=7", f"OUTPUT_PATH={workdir}/out/",
           "LINE_WAIT_CNT=10"]
    for log in logs:
        p = f"LOG{log.index:02d}_"
        out += [f"{p}NAME={workdir}/{log.name}", f"{p}TYPE={log.log_type}", f"{p}CHECK_TYPE={log.check_type}",
                f"{p}SECLOG_LEVEL_CNT=NULL", f"{p}DELIMITOR=,\x03\x1f\x7eNULL", f"{p}NUMBER_PATTERN=NULL",
                f"{p}CHAR_PATTERN=2\x03\x1f\x7e1\x03\x1f\x7eFIRE\x03\x1f\x7e1", f"{p}DATE_PATTERN=NULL",
                f"{p}PATTERN=NULL"]
    return "\n".join(out) + "\n"


class Soak:
    def __init__(self, args):
        self.args = args
        self.workdir = args.workdir or tempfile.mkdtemp(prefix="columnlogs_soak_")
        for sub in ("log", "out", "logs"):
            os.makedirs(os.path.join(self.workdir, sub), exist_ok=True)
        self.logs = build_logs()
        self.rng = random.Random(20240627)
        self.seen = collections.Counter()  # (index, id) -> events
        self.max_per_cycle = collections.Counter()  # index -> most events in one cycle
        self.unparsed, self.ceiling_hits, self.samples, self.failures, self.waits = [], [], [], [], []
        self.cycles = 0
        self.agent = self.start = None

    def path_for(self, log, now):
        if log.kind == "dated":
            return os.path.join(self.workdir, time.strftime("logs/dated17_%Y%m%d-%H%M.log", time.localtime(now)))
        if log.kind == "wildcard":
            return os.path.join(self.workdir, f"logs/wild18_{log.generation:04d}.log")
        return os.path.join(self.workdir, log.name)

    def write_line(self, log, now, fire):
        log.seq += 1
        ident = f"{log.index:02d}-{log.seq:07d}"
        body = ("".join(self.rng.choice("abcdefghij0123456789 ;:") for _ in range(64)) * 1600 if log.kind == "long"
                else "payload " + "z" * self.rng.randint(0, 200))
        data = f"{ident},{'FIRE' if fire else 'calm'},{body}\n".encode()
        with open(self.path_for(log, now), "ab") as f:
            f.write(data)
        log.written += 1
        log.bytes += len(data)
        if fire:
            log.expected.add(ident)
            log.last_fire = ident

    def step_writers(self, now, dt):
        for log in self.logs:
            if log.paused is not None:
                ident, since, action = log.paused
                seen = self.seen[(log.index, ident)] > 0
                if seen or now - since > CATCH_UP_TIMEOUT:
                    if not seen:
                        self.failures.append(f"log {log.index}: {ident} not reported within {CATCH_UP_TIMEOUT}s "
                                             f"before the {action}")
                    self.waits.append(now - since)
                    self.do_action(log, action, now)
                    log.paused = None
            elif log.kind == "dated" and time.localtime(now).tm_sec >= 50:
                pass  # the name moves on at the full minute: the agent reads to the end first
            elif log.next_action is not None and now >= log.next_action[0]:
                # Finish the file with a firing line and wait for its event.
                self.write_line(log, now, True)
                log.paused = (log.last_fire, now, log.next_action[1])
                log.next_action = None
            else:
                log.budget += log.rate * dt
                while log.budget >= 1.0:
                    log.budget -= 1.0
                    self.write_line(log, now, self.rng.random() < log.share)

    def do_action(self, log, action, now):
        path = self.path_for(log, now)
        if action == "rename":
            os.rename(path, f"{path}.{log.generation + 1}")
            open(path, "ab").close()
        elif action == "truncate":
            os.truncate(path, 0)
        log.generation += 1
        log.next_action = (now + ACTIONS[log.kind][0], action)

    def collect(self):
        """Takes the handed-off event files away and counts their ids; returns the number of ing_ files."""
        names = os.listdir(os.path.join(self.workdir, "out"))
        for name in sorted(n for n in names if n.startswith("out_")):
            path = os.path.join(self.workdir, "out", name)
            with open(path, "rb") as f:
                lines = f.read().split(b"\n")[:-1]
            os.unlink(path)
            self.cycles += 1
            per_log = collections.Counter()
            for m, line in ((EVENT.match(line), line) for line in lines):
                if not m:
                    self.unparsed.append(line[:200])
                    continue
                self.seen[(int(m.group(1)), m.group(2).decode())] += 1
                per_log[int(m.group(1))] += 1
            self.ceiling_hits += [(name, index, n) for index, n in per_log.items() if n > EVENT_CEILING]
            for index, n in per_log.items():
                self.max_per_cycle[index] = max(self.max_per_cycle[index], n)
        return sum(1 for n in names if n.startswith("ing_"))

    def sample(self, now, ing_files):
        try:
            with open(f"/proc/{self.agent.pid}/status") as f:
                rss = next(int(line.split()[1]) for line in f if line.startswith("VmRSS:"))
            self.samples.append((now - self.start, rss, len(os.listdir(f"/proc/{self.agent.pid}/fd")), ing_files))
            return True
        except (OSError, StopIteration):
            self.failures.append(f"agent gone at {now - self.start:.0f}s")
            return False

    def run(self):
        with open(os.path.join(self.workdir, "agent.conf"), "w", encoding="latin-1") as f:
            f.write(config_text(self.workdir, self.logs))
        now = time.time()
        for log in self.logs:
            if log.log_type == 0:  # what a type-0 log holds at the first look is skipped by design
                with open(self.path_for(log, now), "ab") as f:
                    f.write(b"".join(f"{log.index:02d}-9{n:06d},FIRE,before the agent\n".encode() for n in range(200)))
            for _ in range(20 if log.log_type != 0 else 0):
                self.write_line(log, now, self.rng.random() < log.share)
            if log.kind in ACTIONS:
                log.next_action = (now + ACTIONS[log.kind][0], ACTIONS[log.kind][1])
        err = open(os.path.join(self.workdir, "agent.err"), "wb")
        self.agent = subprocess.Popen([self.args.agent, "agent.conf"], cwd=self.workdir, stdout=err, stderr=err,
                                      stdin=subprocess.DEVNULL)
        deadline = time.time() + 30
        while not os.path.exists(os.path.join(self.workdir, "LoggerAlive")) and time.time() < deadline:
            time.sleep(0.05)
        if self.agent.poll() is not None or time.time() >= deadline:
            return self.failures.append("agent did not start")
        time.sleep(1.5)  # the first cycle has had its look at every log
        self.start = last = time.time()
        last_sample = 0.0
        while (now := time.time()) < self.start + self.args.duration:
            self.step_writers(now, now - last)
            last = now
            ing = self.collect()
            if now - last_sample >= SAMPLE_SECONDS:
                last_sample = now
                if not self.sample(now, ing):
                    return
            time.sleep(0.02)
        # Let the agent read everything that was written, then stop it.
        drain_end = time.time() + 60
        while time.time() < drain_end and not all(
                log.last_fire is None or self.seen[(log.index, log.last_fire)] for log in self.logs):
            self.collect()
            time.sleep(0.2)
        time.sleep(3)
        self.collect()
        self.sample(time.time(), self.collect())
        self.agent.send_signal(signal.SIGTERM)
        self.agent.wait(10)
        self.collect()

    def report(self):
        elapsed = self.samples[-1][0] if self.samples else 0
        lines = [f"duration: {elapsed:.0f} s of writing, {len(self.samples)} samples, {self.cycles} event files",
                 "log   lines  bytes(MB)  should fire  fired once  missing  duplicated  unexpected  max/cycle"]
        totals, fail = collections.Counter(), self.failures
        for log in self.logs:
            got = {key for (index, key) in self.seen if index == log.index}
            bad = {"missing": log.expected - got, "unexpected": got - log.expected,
                   "dup": {key for key in got if self.seen[(log.index, key)] > 1}}
            totals.update(written=log.written, bytes=log.bytes, expected=len(log.expected),
                          **{name: len(keys) for name, keys in bad.items()})
            lines.append(f"{log.index:3d} {log.written:7d} {log.bytes / 1e6:10.2f} {len(log.expected):12d} "
                         f"{len(log.expected - bad['missing'] - bad['dup']):11d} {len(bad['missing']):8d} "
                         f"{len(bad['dup']):11d} {len(bad['unexpected']):11d} {self.max_per_cycle[log.index]:10d}")
            lines += [f"      {name} {key}" for name, keys in bad.items() for key in sorted(keys)[:5]]
        lines.append(f"written: {totals['written']} lines, {totals['bytes'] / 1e6:.1f} MB into 19 watched logs")
        lines.append(f"events: {totals['expected']} should fire, missing {totals['missing']}, duplicated "
                     f"{totals['dup']}, unexpected {totals['unexpected']}, unparsed event lines {len(self.unparsed)}")
        if totals["missing"] or totals["dup"] or totals["unexpected"] or self.unparsed:
            fail.append("events missing, duplicated, unexpected or unparsed")
        if self.ceiling_hits:
            fail.append(f"cycles over the {EVENT_CEILING}-event ceiling: {self.ceiling_hits[:5]}")
        if self.waits:
            lines.append(f"catch-up waits before rename/truncate/new name: {len(self.waits)}, "
                         f"longest {max(self.waits):.1f} s")
        after = [s for s in self.samples if s[0] >= WARMUP_SECONDS]
        first = [s for s in self.samples if s[0] < WARMUP_SECONDS]
        if after and first:
            # A leak lifts the floor: the smallest reading of the last quarter above the largest of the
            # first quarter after warm-up (1 MB of allocator slack), or descriptors above the first minute's.
            q = max(1, len(after) // 4)
            rss, fds = [s[1] for s in after], [s[2] for s in after]
            early, base_fds = max(rss[:q]), max(s[2] for s in first)
            lines.append(f"rss KB: first minute max {max(s[1] for s in first)}, after it min {min(rss)} max "
                         f"{max(rss)}; first quarter after warm-up max {early}, last quarter max {max(rss[-q:])}")
            lines.append(f"open descriptors: first minute max {base_fds}, after it min {min(fds)} max {max(fds)}")
            if min(rss[-q:]) > early + 1024:
                fail.append("resident memory grows")
            if min(fds[-q:]) > base_fds or max(fds) > base_fds + 2:
                fail.append("open descriptors grow")
        most_ing = max((s[3] for s in self.samples), default=0)
        left = [n for n in os.listdir(os.path.join(self.workdir, "out")) if n.startswith("ing_")]
        lines.append(f"ing_ files: at most {most_ing} at a sample, {len(left)} left after the stop")
        if most_ing > 1 or len(left) > 1:
            fail.append("ing_ files pile up")
        lines += [f"FAIL: {failure}" for failure in fail] + ["RESULT: " + ("FAIL" if fail else "PASS")]
        return not fail, "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    for flag, options in (("--agent", {"required": True}), ("--duration", {"type": float, "default": 600}),
                          ("--workdir", {}), ("--keep", {"action": "store_true"})):
        parser.add_argument(flag, **options)
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
    if args.keep:
        print(f"work directory kept: {soak.workdir}")
    elif args.workdir is None:
        shutil.rmtree(soak.workdir, ignore_errors=True)
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
