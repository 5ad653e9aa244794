#!/usr/bin/python3
"""Gathers what scripts/reliability measured into one table, prints it and, with
--document, writes it into docs/reliability.md between its markers. Exits 1 when a
goal is missed: a record lost, a fuzz crash, a fault case failed, soak growth."""
import argparse
import glob
import json
import os
import re
import sys

BEGIN, END = "<!-- figures:begin -->", "<!-- figures:end -->"
FUZZ_TARGETS = {
    "fuzz_wire": "wire decoders (habits, tasks, timer, envelopes)",
    "fuzz_app_text": "emoji, panel frame, callback URL, instance message",
    "fuzz_export": "export / import reader",
    "fuzz_server": "server request handling (raw bytes to SQLite)",
}


def load(path):
    try:
        with open(path) as f:
            return json.load(f)
    except (OSError, ValueError):
        return None


def fuzz_figures(out, target):
    try:
        log = open(os.path.join(out, target + ".log"), errors="replace").read()
    except OSError:
        return None, None
    runs = re.findall(r"stat::number_of_executed_units: (\d+)", log)
    crashes = len(glob.glob(os.path.join(out, target + "-*")))
    if "ERROR: " in log or "==ERROR" in log:
        crashes = max(crashes, 1)
    return (int(runs[-1]) if runs else 0), crashes


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--out", required=True)
    parser.add_argument("--document")
    args = parser.parse_args()
    out = args.out
    rows, missed = [], []

    def row(what, value, goal, ok):
        rows.append("| %s | %s | %s |" % (what, value, goal))
        if not ok:
            missed.append(what)

    app = load(os.path.join(out, "app.json"))
    if app:
        row("App: kills survived (store intact, app starts)",
            "%d of %d" % (app["app_starts"] - 1, app["app_kills"]), "all",
            app["app_starts"] - 1 == app["app_kills"] and not app["failures"])
        row("App: saved records lost", "%d (of %d changes acknowledged; %d not yet saved at a kill)"
            % (app["app_lost"], app["app_acknowledged"], app["app_unsaved_at_kill"]), "0",
            app["app_lost"] == 0)
    else:
        row("App kills", "did not run", "—", False)
    for engine in ("sqlite", "postgresql"):
        server = load(os.path.join(out, "server-%s.json" % engine))
        prefix = "server_%s_" % engine
        if server:
            row("Server (%s): kills survived" % engine, "%d" % server[prefix + "kills"], "all",
                not server["failures"])
            row("Server (%s): acknowledged PUTs lost" % engine, "%d (of %d)"
                % (server[prefix + "lost"], server[prefix + "acknowledged"]), "0",
                server[prefix + "lost"] == 0 and not server["failures"])
        else:
            row("Server (%s) kills" % engine, "did not run", "—", False)
    for target, what in FUZZ_TARGETS.items():
        runs, crashes = fuzz_figures(out, target)
        if runs is None:
            row("Fuzz %s" % target, "did not run", "—", False)
            continue
        enough = runs >= 1_000_000 if args.document else runs > 0
        row("Fuzz `%s` (%s)" % (target, what), "%s runs, %d crashes" % (format(runs, ","), crashes),
            "0 crashes over ≥ 1,000,000 runs", crashes == 0 and enough)
    faults = load(os.path.join(out, "faults.json")) or {}
    passed = sum(1 for case in faults.values() if case.get("passed"))
    row("Fault cases passed", "%d of %d" % (passed, len(faults)), "all",
        passed == len(faults) >= 16)
    soak = {}
    try:
        for line in open(os.path.join(out, "soak.txt")):
            m = re.match(r"soak (\w+) (-?\d+)", line)
            if m:
                soak[m.group(1)] = int(m.group(2))
    except OSError:
        pass
    if "rss_growth_kb" in soak:
        row("Soak: RSS growth after 100,000 counts, 10,000 task edits, 2,000 phases",
            "%.1f MB" % (soak["rss_growth_kb"] / 1024), "≤ 2 MB", soak["rss_growth_kb"] <= 2048)
        row("Soak: leaked file descriptors", str(soak["fd_growth"]), "0", soak["fd_growth"] == 0)
        row("Soak: store growth", "%.1f MB" % (soak["store_growth_kb"] / 1024), "reported", True)
    else:
        row("Soak", "did not run", "—", False)

    table = "\n".join(["| What | Measured | Goal |", "|---|---|---|"] + rows)
    cases = ["| Case | What the hub shows | Hub answered within |", "|---|---|---|"]
    for name, case in faults.items():
        shown = "; ".join(case.get("text", [])) or "—"
        answered = "%.2f s" % case["answer_s"] if "answer_s" in case else (
            "started in %.2f s" % case["start_s"] if "start_s" in case else "—")
        cases.append("| %s | %s | %s |" % (name, shown.replace("|", "\\|"), answered))
    report = table + "\n\n" + "\n".join(cases)
    print(report)
    with open(os.path.join(out, "figures.md"), "w") as f:
        f.write(report + "\n")
    if args.document:
        text = open(args.document).read()
        text = re.sub(re.escape(BEGIN) + ".*?" + re.escape(END),
                      lambda _: BEGIN + "\n" + report + "\n" + END, text, flags=re.S)
        with open(args.document, "w") as f:
            f.write(text)
    if missed:
        print("missed: " + ", ".join(missed), file=sys.stderr)
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
