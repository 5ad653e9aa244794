#!/usr/bin/python3
"""Writes the seed corpora under tests/fuzz/corpus/ from real bodies: what the app
and the server exchange, an export document, a second launch's messages and the
requests a server gets. Run again after a wire change; the files are committed."""
import json
import os

HERE = os.path.dirname(os.path.abspath(__file__))
HABIT = {"icon": "1F4A7", "name": "Water", "color": "#3B82F6", "maxValue": 8,
         "currentValue": 3, "firstTrackerDate": "2026-03-01T07:00:00Z"}
LIST = {"name": "Groceries", "highlightedTask": 1,
        "tasks": [{"header": "Milk", "priority": None, "checked": False, "subtasks": []},
                  {"header": "Bread ✓", "priority": 2, "checked": True, "subtasks": ["rye"]}]}
POMODORO = {"pomodoroDuration": "25", "shortBreakDuration": "5", "longBreakDuration": "15",
            "pomodorosForLongBreak": "4", "autoStart": "false", "pomodoroCount": "2",
            "pomodoroTotalCount": "7", "shortBreakCount": "5", "longBreakCount": "1",
            "isBreak": "false", "isShortBreak": "false", "isLongBreak": "false",
            "firstPomodoroCountDate": "2026-03-01T07:00:00Z"}


def compact(value):
    return json.dumps(value, separators=(",", ":"), ensure_ascii=False).encode()


def write(target, name, data):
    folder = os.path.join(HERE, "corpus", target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


def main():
    # fuzz_wire: the first byte picks the decoder.
    write("fuzz_wire", "habits-reply", b"\x00" + compact({"data": [HABIT]}))
    write("fuzz_wire", "habits-body", b"\x01" + compact([HABIT, dict(HABIT, name="Read")]))
    write("fuzz_wire", "tasks-reply", b"\x02" + compact({"data": [LIST]}))
    write("fuzz_wire", "tasks-body", b"\x03" + compact([LIST]))
    write("fuzz_wire", "pomodoro-reply", b"\x04" + compact({"data": POMODORO}))
    write("fuzz_wire", "pomodoro-null", b"\x04" + compact({"data": None}))
    write("fuzz_wire", "pomodoro-body", b"\x05" + compact(POMODORO))
    write("fuzz_wire", "ok-reply", b"\x06" + compact({"ok": True}))

    # fuzz_app_text: emoji, frame, callback URL, instance message.
    write("fuzz_app_text", "emoji-code-points", b"\x00" + b"1F3CB-FE0F-200D-2642-FE0F")
    write("fuzz_app_text", "emoji-text", b"\x00" + "💧".encode())
    write("fuzz_app_text", "frame", b"\x01" + b"{{120, 80}, {420, 520}}")
    write("fuzz_app_text", "callback", b"\x02" + b"tidewell://auth?token=tw_abc%2Bdef&state=n0nce")
    write("fuzz_app_text", "callback-no-token", b"\x02" + b"tidewell://auth?state=x")
    write("fuzz_app_text", "activate", b"\x03" + compact({"command": "activate",
                                                         "activation": "token-1"}))
    write("fuzz_app_text", "open", b"\x03" + compact({"command": "open",
                                                     "url": "tidewell://auth?token=a&state=b"}))

    # fuzz_export: a small document with a record of every kind.
    habit_id, list_id = "6f1f7d0e-6a43-4a8f-9a3e-4c6e0f1d2b3a", "0b7c1e52-9d8f-4a55-8b1e-2f6d3c4a5b6c"
    document = {
        "format": "tidewell-export", "version": 1, "exportedAt": "2026-11-25T10:00:00.000Z",
        "timer": [{"id": "1d2c3b4a-5e6f-4a8b-9c0d-1e2f3a4b5c6d", "pomodoroDuration": 25,
                   "shortBreakDuration": 5, "longBreakDuration": 15, "pomodorosForLongBreak": 4,
                   "autoStart": False, "pomodoroCount": 2, "pomodoroTotalCount": 7,
                   "shortBreakCount": 5, "longBreakCount": 1, "isBreak": False,
                   "isShortBreak": False, "isLongBreak": False,
                   "firstPomodoroCountDate": "2026-11-25T07:00:00.000Z"}],
        "taskLists": [{"id": list_id, "name": "Groceries", "order": 0, "highlightedTask": None}],
        "tasks": [{"id": "9a8b7c6d-5e4f-4a3b-8c2d-1e0f9a8b7c6d", "header": "Milk",
                   "priority": None, "checked": False, "order": 0, "listId": list_id}],
        "habits": [{"id": habit_id, "icon": "💧", "name": "Water", "colorHex": "#0A84FF",
                    "maxValue": 8, "currentValue": 3, "order": 0,
                    "firstTrackerDate": "2026-03-01T07:00:00.000Z"}],
        "habitHistory": [{"id": "2b3c4d5e-6f7a-4b8c-9d0e-1f2a3b4c5d6e", "habitId": habit_id,
                          "date": "2026-11-24", "value": 8, "maxValue": 8, "completed": True}],
        "placements": [{"widgetId": "pomodoro", "mode": "floating", "inStatusBar": True,
                        "isFloating": True, "frame": "{{120, 80}, {420, 520}}"}],
        "focusSessions": [{"id": "3c4d5e6f-7a8b-4c9d-8e0f-1a2b3c4d5e6f", "phase": "focus",
                           "startedAt": "2026-11-25T08:00:00.000Z", "day": "2026-11-25",
                           "endedAt": "2026-11-25T08:25:00.000Z", "plannedSeconds": 1500,
                           "elapsedSeconds": 1500, "outcome": "completed"}],
    }
    write("fuzz_export", "document", json.dumps(document, indent=1, ensure_ascii=False).encode())

    # fuzz_server: raw requests; @TOKEN@ stands for a valid bearer token.
    def request(method, path, body=b"", token=True, kind=b"application/json"):
        head = [b"%s %s HTTP/1.1" % (method, path), b"Host: 127.0.0.1:8080"]
        if token:
            head.append(b"Authorization: Bearer @TOKEN@")
        if body:
            head += [b"Content-Type: " + kind, b"Content-Length: %d" % len(body)]
        return b"\r\n".join(head) + b"\r\n\r\n" + body

    write("fuzz_server", "get-habits", request(b"GET", b"/api/v1/habits"))
    write("fuzz_server", "put-habits", request(b"PUT", b"/api/v1/habits", compact([HABIT])))
    write("fuzz_server", "put-tasks", request(b"PUT", b"/api/v1/tasks", compact([LIST])))
    write("fuzz_server", "put-pomodoro", request(b"PUT", b"/api/v1/pomodoro", compact(POMODORO)))
    write("fuzz_server", "no-token", request(b"GET", b"/api/v1/tasks", token=False))
    write("fuzz_server", "healthz", request(b"GET", b"/healthz", token=False))
    write("fuzz_server", "sign-in", request(b"POST", b"/en/app/signin", b"name=ann&password=correct+horse&form=x",
                                            token=False,
                                            kind=b"application/x-www-form-urlencoded"))
    write("fuzz_server", "connect", request(b"GET", b"/en/app/connect?state=abc&scheme=tidewell",
                                            token=False))
    write("fuzz_server", "pipelined", request(b"GET", b"/healthz", token=False) +
          request(b"PUT", b"/api/v1/habits", compact([HABIT])) +
          request(b"GET", b"/api/v1/habits"))
    write("fuzz_server", "sign-in-next",
          request(b"POST", b"/en/app/signin",
                  b"name=ann&password=correct+horse&form=x&next=%2Fen%2Fapp%2Ftokens%0D%0AX%3A1",
                  token=False, kind=b"application/x-www-form-urlencoded")
          .replace(b"\r\n\r\n", b"\r\nCookie: tw_form=x\r\n\r\n", 1))


if __name__ == "__main__":
    main()
