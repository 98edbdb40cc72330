#!/usr/bin/env python3
"""Runs the benchmarks and prints one table: the client beside its yardsticks.

Called by bench.sh, which sets up the desktop, the service and the watcher.
"""

import argparse
import itertools
import json
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import time

LOGIN = "anna@orvana.example"
MEGABYTE = 1024 * 1024

# what, program, client's benchmark, yardstick's, goal for the ratio, measure
MICRO = [
    ("parse a 5 MB body / QJsonDocument", "bench_json", "parseOurs", "parseQt", 0.45, "cpu_time"),
    ("write the same tree / QJsonDocument", "bench_json", "writeOurs", "writeQt", 0.60, "cpu_time"),
    ("list of 50,000 tasks, nothing changed / parsing it", "bench_lists", "listUnchanged/all", "parseAlone", 1.5, "cpu_time"),
    ("the same / comparing its bytes with the last reply's", "bench_lists", "listUnchanged/all", "compareWithLast", 1.2, "cpu_time"),
    ("the same with ten times the tasks / with a tenth", "bench_lists", "listUnchanged/all", "listUnchanged/tenth", 11, "cpu_time"),
    ("list with 1 % changed / parsing it", "bench_lists", "listChanged/hundredth", "parseAlone", 1.7, "cpu_time"),
    ("list emptied, list filled / parsing it", "bench_lists", "listChanged/all", "parseAlone", 1.7, "cpu_time"),
    ("save, only the day's counters changed / a small file", "bench_lists", "saveUnchanged", "saveOneSmallFile", 1.3, "real_time"),
    ("save, one team of 200 changed / its file once", "bench_lists", "saveOneTeamChanged", "writeTaskFileOnce", 1.1, "cpu_time"),
    ("drain 10,000 minutes / bare posts", "bench_sending", "drainOurs", "drainBare", 1.08, "real_time"),
    ("a closed minute with its journal / without it", "bench_sending", "closedMinute/journaled/real_time", "closedMinute/bare/real_time", 1.25, "real_time"),
    ("a 3840x2160 screenshot / its JPEG encoding", "bench_sending", "screenshotOurs", "screenshotBare", 1.4, "cpu_time"),
    ("chooser opened on 5,000 tasks / filling a plain box", "bench_chooser", "openChooser", "fillPlainBox", 1.5, "cpu_time"),
    ("1,000 notices at once / those that fit as plain windows", "bench_notices", "showNotices", "showPlainWindows", 1.2, "real_time"),
]
# 50,000 tasks, changed back and forth: what, name of the benchmarks
SHAPES = [
    ("in one team, 1 % changed", "oneTeam"),
    ("in 5,000 teams, 1 % changed", "manyTeams"),
    ("each task in all of ten teams, 1 % changed", "shared"),
    ("in 200 teams, all deadlines moved", "moved"),
    ("in 200 teams, half of them gone and back", "half"),
    ("in 200 teams, all of them new", "new"),
]
for what, name in SHAPES:
    MICRO.append((f"list of 50,000 tasks {what} / parsing it", "bench_lists", f"shape/{name}", f"parseShape/{name}", 1.5, "cpu_time"))
    MICRO.append(("the same with ten times the tasks / with a tenth", "bench_lists", f"shape/{name}", f"shape/{name}Tenth", 11, "cpu_time"))
REPETITIONS = {"bench_json": 9, "bench_lists": 7, "bench_sending": 5, "bench_chooser": 9, "bench_notices": 7, "bench_hold": 3}
WITH_WINDOWS = {"bench_notices"}
STARTS = 15
WAITING_RECORDS = 10_000
# Seconds. A long title scrolls three times after the start, and the lists come after a minute.
SETTLING = 150
SETTLING_ALONE = 90
BETWEEN_STARTS = 1.1
COPIES = 7  # side by side
SHORT_TITLE, LONG_TITLE = "1704", "1705"


class Table:
    def __init__(self):
        self.rows = []

    def ratio(self, what, ours, yardstick, goal, unit):
        value = ours / yardstick
        self.rows.append((what, f"{ours:.4g} {unit}".rstrip(), f"{yardstick:.4g} {unit}".rstrip(), f"{value:.2f}", f"{goal:g}", value <= goal))

    def limit(self, what, ours, goal, unit):
        self.rows.append((what, f"{ours:.3g} {unit}", "", "", f"{goal:g} {unit}", ours <= goal))

    def print(self):
        print("| what / yardstick | client | yardstick | ratio | goal | |")
        print("|---|---|---|---|---|---|")
        for *cells, met in self.rows:
            print("| " + " | ".join(cells) + (" | met |" if met else " | MISSED |"))
        print(f"\n{sum(row[-1] for row in self.rows)} of {len(self.rows)} goals met")


def say(text):
    print(text, flush=True)


def micro(build, out, table):
    results = {}
    for program, repetitions in REPETITIONS.items():
        say(f"{program} ...")
        report = out / f"{program}.json"
        subprocess.run(
            [build / "bench" / program, f"--benchmark_repetitions={repetitions}",
             "--benchmark_min_time=0.1", "--benchmark_enable_random_interleaving=true", f"--benchmark_out={report}", "--benchmark_out_format=json"],
            check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            env=dict(os.environ, QT_QPA_PLATFORM="xcb" if program in WITH_WINDOWS else "offscreen"))
        for run in json.loads(report.read_text())["benchmarks"]:
            if run.get("error_occurred"):
                raise SystemExit(f"{run['name']}: {run['error_message']}")
            if run["run_type"] == "iteration":
                results.setdefault(re.sub("/(iterations|min_time):.*", "", run["run_name"]), []).append(run)
    for what, _, ours, yardstick, goal, measure in MICRO:
        medians = [statistics.median(run[measure] for run in results[name]) for name in (ours, yardstick)]
        table.ratio(what, *medians, goal, "ms")
    table.limit("longest stall while draining", statistics.median(run["stall_ms"] for run in results["drainOurs"]), 50, "ms")
    for name, size, goal in (("small", "1 MB", 50), ("large", "32 MB", 1000)):
        table.limit(f"longest hold of the window, any reply of {size}", statistics.median(run["hold_ms"] for run in results[f"longestHold/{name}"]), goal, "ms")
    grown = [statistics.median(run["grown_mb"] for run in results[name]) for name in ("drainOurs", "drainBare")]
    table.limit("memory gained by draining beyond that of bare posts", grown[0] - grown[1], 1, "MB")


def add_records(root):
    """Minutes that the service has not got yet."""
    folder = root / ".orvana" / LOGIN / "activity"
    folder.mkdir(mode=0o700, exist_ok=True)
    for number in range(WAITING_RECORDS):
        made = time.strftime("%d-%m-%Y-%H-%M-%S", time.localtime(1_750_000_000 + 60 * number))
        record = {"version": "0.1", "api-url": os.environ["ORVANA_SERVICE_URL"] + "/api_active2", "timestamp": made,
                  "body": {"active": "5", "email": LOGIN, "past": "0", "task_id": "1704", "team_id": "17", "version": "1"}}
        (folder / f"json{made}.{number:06}").write_text(json.dumps(record))


def make_storage(root, tracking, task=SHORT_TITLE):
    """What a client leaves that was used once and knows all lists."""
    folder = root / ".orvana" / LOGIN
    folder.mkdir(parents=True, mode=0o700)
    (root / "tmp").mkdir()
    (root / ".orvana" / "config.ini").write_text(f"[General]\nlastLogin={LOGIN}\n")
    session = dict(password="orvana", logged="true", active=str(tracking).lower(), teamID="17", taskID=task, isOnline="true")
    (folder / "session.ini").write_text("[General]\n" + "".join(f"{k}={v}\n" for k, v in session.items()))
    return dict(os.environ, ORVANA_STORAGE_ROOT=str(root), TMPDIR=str(root / "tmp"))


def start(command, environment=None):
    return subprocess.Popen(command, env=environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def stop(process):
    if process.poll() is not None:
        return
    process.terminate()
    try:
        process.wait(20)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def starts(build, out, table):
    say("starts ...")
    environment = make_storage(out / "start", tracking=False)
    first = start([build / "src/orvana"], environment)
    time.sleep(5)
    stop(first)
    waiting = make_storage(out / "waiting", tracking=False)
    add_records(out / "waiting")
    environments = {"waiting": waiting}
    trivial = build / "bench/trivialwindow"
    programs = {
        "waiting": ("Orvana", [build / "src/orvana"]),
        "client": ("Orvana", [build / "src/orvana"]),
        "trivial": ("Trivial", [trivial]),
        "defaults": ("Trivial", [trivial, "--defaults"]),
        "ktimetracker": ("KTimeTracker", ["ktimetracker"]),
        "nm-tray": ("nm-tray", ["nm-tray"]),  # its tray icon
    }
    taken = {name: [] for name in programs}
    for number in range(STARTS + 1):
        for name, (title, command) in programs.items():
            run = subprocess.run([build / "bench/timedstart", title, *command], env=environments.get(name, environment), check=True, capture_output=True)
            if number > 0:  # the first fills the caches
                taken[name].append(float(run.stdout))
    medians = {name: statistics.median(times) for name, times in taken.items()}
    table.ratio("start to painted / trivial window", medians["client"], medians["trivial"], 1.2, "ms")
    table.ratio("start on 10,000 waiting records, counted / without", medians["waiting"], medians["client"], 1.1, "ms")
    table.ratio("start / trivial window with Qt's default settings", medians["client"], medians["defaults"], 1, "ms")
    table.ratio("start / ktimetracker", medians["client"], medians["ktimetracker"], 0.3, "ms")
    table.ratio("start / nm-tray", medians["client"], medians["nm-tray"], 0.8, "ms")


def cpu_seconds(process):
    """All threads, ended ones included: the process's CPU clock."""
    return time.clock_gettime(~process.pid << 3 | 2)


def wakeups(process):
    """Of all threads; those that ended are missing."""
    status = "".join(path.read_text() for path in pathlib.Path(f"/proc/{process.pid}/task").glob("*/status"))
    return sum(map(int, re.findall(r"^voluntary_ctxt_switches:\s*(\d+)", status, re.MULTILINE)))


def memory_of(process, *kinds):
    rollup = pathlib.Path(f"/proc/{process.pid}/smaps_rollup").read_text()
    return sum(int(re.search(rf"^{kind}:\s*(\d+) kB", rollup, re.MULTILINE)[1]) for kind in kinds) * 1024 / MEGABYTE


def pss(process):
    return memory_of(process, "Pss")


def main_window(process):
    """Its tray icon, a visible window of the same name, is none of the window manager's."""
    search = ["xdotool", "search", "--all", "--onlyvisible", "--pid", str(process.pid), "--name", "^Orvana$"]
    found = {int(number) for number in subprocess.run(search, capture_output=True, text=True, timeout=20).stdout.split()}
    managed = subprocess.run(["xprop", "-root", "_NET_CLIENT_LIST"], capture_output=True, text=True, timeout=20).stdout
    return next((str(int(number, 16)) for number in re.findall("0x[0-9a-f]+", managed) if int(number, 16) in found), None)


def hide(process):
    """As a user does: only the active window takes the key, and one too many would go to the next window."""
    deadline = time.monotonic() + 20
    window = main_window(process)
    while main_window(process):
        if time.monotonic() > deadline:
            raise SystemExit("the window to be hidden stays")
        active = subprocess.run(["xdotool", "getactivewindow"], capture_output=True, text=True, timeout=20).stdout.strip()
        action = ["key", "Escape"] if active == window else ["windowactivate", window]
        subprocess.run(["xdotool", *action], timeout=20)
        time.sleep(0.5)


def alone(command, environment=None):
    """Private memory while no other Qt program runs but the service and the watcher."""
    process = start(command, environment)
    try:
        time.sleep(SETTLING_ALONE)
        return memory_of(process, "Private_Clean", "Private_Dirty")
    finally:
        stop(process)


def idle(build, out, table, minutes):
    say("alone ...")
    client, trivial, bare = build / "src/orvana", build / "bench/trivialwindow", build / "bench/bareprogram"
    service = os.environ["ORVANA_SERVICE_URL"]
    private = alone([client], make_storage(out / "alone", tracking=True)), alone([trivial])
    say(f"{minutes} min side by side ...")
    user = f"login={LOGIN}&password=orvana"
    duties = [bare, "/etc/hostname", f"{service}/api_teams_tasks?{user}"]
    report = f"active=5&email={LOGIN}&past=0&task_id={SHORT_TITLE}&team_id=17&version=1.1.0"
    storage = {"idle": (False, SHORT_TITLE), "hidden": (True, SHORT_TITLE), "visible": (True, SHORT_TITLE), "scrolling": (True, LONG_TITLE)}
    commands = {
        **{name: [client] for name in storage},
        "request": [trivial, "--request", service + "/api_teams"],
        "clock": [trivial, "--clock"],
        "bare": duties,
        "posting": [*duties, service + "/api_active2", report],
    }
    running = {name: [] for name in commands}
    cpu, woken = {}, {}
    try:
        # In turns, so that no kind runs first in each second and fills the caches for the others.
        for number in range(COPIES):
            for name, command in commands.items():
                environment = make_storage(out / f"{name}{number}", *storage[name]) if name in storage else None
                running[name].append(start(command, environment))
                time.sleep(BETWEEN_STARTS)
        time.sleep(SETTLING)
        for process in running["hidden"]:
            hide(process)
        for process in running["visible"] + running["scrolling"]:
            if not main_window(process):
                raise SystemExit("the window to be seen is not there")
        figures = {name: [(cpu_seconds(process), wakeups(process)) for process in processes] for name, processes in running.items()}
        time.sleep(minutes * 60)
        for name, before in figures.items():
            spent = sorted((cpu_seconds(process) - seconds) * 1000 / minutes for process, (seconds, _) in zip(running[name], before))
            say(f"{name}: {spent[0]:.3g} to {spent[-1]:.3g} ms a minute")
            cpu[name] = statistics.median(spent)
            woken[name] = statistics.median((wakeups(process) - count) / minutes for process, (_, count) in zip(running[name], before))
        # One of each: what two clients share would count half.
        left = {name: running[name][0] for name in ("visible", "request")}
        for process in itertools.chain(*running.values()):
            if process not in left.values():
                stop(process)
        left["ktimetracker"] = start(["ktimetracker"])
        running["ktimetracker"] = [left["ktimetracker"]]
        time.sleep(SETTLING)
        memory = {name: pss(process) for name, process in left.items()}
    finally:
        for process in itertools.chain(*running.values()):
            stop(process)
    table.ratio("memory (Pss) while tracking / trivial window after a request", memory["visible"], memory["request"], 1.25, "MB")
    table.ratio("memory (Pss) while tracking / ktimetracker", memory["visible"], memory["ktimetracker"], 0.5, "MB")
    table.limit("private memory while tracking, alone", private[0], 16, "MB")
    table.ratio("the same / trivial window", *private, 1.3, "MB")
    for what, name, yardstick, of, goal, goal_woken in [
        ("tracking, visible", "visible", "clock label", "clock", 1.4, 1.2),
        ("tracking, visible, a long title", "scrolling", "clock label", "clock", 1.6, 1.2),
        ("tracking, hidden", "hidden", "bare program that posts", "posting", 1.5, 1.2),
        ("idle", "idle", "bare program", "bare", 1.3, 1.1),
    ]:
        table.ratio(f"CPU a minute, {what} / {yardstick}", cpu[name], cpu[of], goal, "ms")
        table.ratio(f"wake-ups a minute, {what} / {yardstick}", woken[name], woken[of], goal_woken, "")
    table.ratio("CPU a minute, tracking, hidden / clock label", cpu["hidden"], cpu["clock"], 1, "ms")


def installed(build, out, table):
    root = out / "installed"
    subprocess.run(["cmake", "--install", build, "--component", "client", "--strip", "--prefix", root],
                   check=True, stdout=subprocess.DEVNULL)
    size = sum(path.lstat().st_size for path in root.rglob("*") if path.is_file())
    table.limit("installed size without Qt", size / MEGABYTE, 3, "MB")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("out", type=pathlib.Path)
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--only", choices=["micro", "starts", "idle", "installed"])
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    shutil.rmtree(arguments.out, ignore_errors=True)
    arguments.out.mkdir(parents=True)
    table = Table()
    parts = {
        "micro": lambda: micro(build, arguments.out, table),
        "starts": lambda: starts(build, arguments.out, table),
        "idle": lambda: idle(build, arguments.out, table, arguments.minutes),
        "installed": lambda: installed(build, arguments.out, table),
    }
    for name, part in parts.items():
        if arguments.only in (None, name):
            part()
    table.print()


main()
