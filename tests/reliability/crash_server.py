#!/usr/bin/python3
"""Kills tidewell-server with SIGKILL in the middle of a stream of PUTs, again and
again, on one database, and checks after every restart that each user's habits
hold at least the last value the server acknowledged with a 200 (never less;
a PUT in flight at the kill may have landed too) and never more than was sent. On
SQLite the file must also pass `PRAGMA integrity_check` after each kill.

Usage: crash_server.py <tidewell-server binary> <sqlite|postgresql> <kills> [--json FILE]
PostgreSQL comes from TIDEWELL_TEST_POSTGRES (scripts/postgres-for-tests starts one).
Prints server_<engine>_kills, _lost and _acknowledged at the end.
"""
import json
import os
import random
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "server"))
import test_server_processes as processes  # noqa: E402

WRITERS = 4


def main():
    processes.SERVER = os.path.abspath(sys.argv[1])
    kind, kills = sys.argv[2], int(sys.argv[3])
    out = sys.argv[sys.argv.index("--json") + 1] if "--json" in sys.argv else None
    tmp = tempfile.mkdtemp(prefix="tws-crash-")
    engine = processes.Engine(kind, tmp)
    prefix = "server_%s_" % kind
    figures = {prefix + "kills": 0, prefix + "lost": 0, prefix + "acknowledged": 0}
    failures = []
    try:
        tokens = []
        for i in range(WRITERS):
            made = cli(engine.url, "user", "add", "user%d" % i, stdin="correct horse\n")
            token = cli(engine.url, "token", "create", "user%d" % i, "--label", "crash")
            if made.returncode or token.returncode:
                raise SystemExit("could not make users: " + made.stderr + token.stderr)
            tokens.append(token.stdout.strip())
        sent = {t: 0 for t in tokens}   # the last value sent
        acked = {t: 0 for t in tokens}  # the last value acknowledged
        port = processes.free_port()
        for round_ in range(kills):
            server = processes.Server(engine.url, port)
            stop = threading.Event()

            def writer(token):
                while not stop.is_set():
                    sent[token] += 1
                    try:
                        status, _ = server.request("PUT", "/api/v1/habits",
                                                   processes.habits_body(sent[token]), token)
                    except OSError:
                        return
                    if status == 200:
                        acked[token] = sent[token]
                        figures[prefix + "acknowledged"] += 1

            threads = [threading.Thread(target=writer, args=(t,)) for t in tokens]
            for t in threads:
                t.start()
            time.sleep(random.uniform(0.05, 1.5))
            server.proc.kill()
            stop.set()
            for t in threads:
                t.join()
            server.proc.communicate()
            figures[prefix + "kills"] += 1
            if kind == "sqlite":
                db = sqlite3.connect(engine.url[len("sqlite:"):])
                verdict = db.execute("PRAGMA integrity_check").fetchall()
                db.close()
                if verdict != [("ok",)]:
                    failures.append("round %d: integrity_check %r" % (round_, verdict[:5]))
            server = processes.Server(engine.url, port)
            try:
                for token in tokens:
                    status, body = server.request("GET", "/api/v1/habits", token=token)
                    data = json.loads(body)["data"] if status == 200 else None
                    value = data[0]["currentValue"] if data else 0
                    if value < acked[token] or value > sent[token]:
                        figures[prefix + "lost"] += 1 if value < acked[token] else 0
                        failures.append("round %d: stored %d, acknowledged %d, sent %d"
                                        % (round_, value, acked[token], sent[token]))
                    # The next round goes on from what is stored.
                    sent[token] = acked[token] = value
            finally:
                server.proc.kill()
                server.proc.communicate()
    finally:
        engine.drop()
    for name, value in figures.items():
        print(name, value)
    for failure in failures:
        print("FAIL", failure)
    if out:
        with open(out, "w") as f:
            json.dump(dict(figures, failures=failures), f)
    return 1 if failures else 0


def cli(url, *args, stdin=None):
    return subprocess.run([processes.SERVER, *args, "--database", url], input=stdin,
                          capture_output=True, text=True, timeout=60)


if __name__ == "__main__":
    sys.exit(main())
