#include "ControlCommand.h"

bool ControlCommand::handles(const QStringList& args)
{
    const QString first = args.value(0);
    return first == u"ctl" || first == u"habit" || first == u"task";
}

QString ControlCommand::help()
{
    return QStringLiteral(R"(Usage: tidewell [--background] [URL]
       tidewell ctl toggle|start|pause|skip|reset
       tidewell ctl status [--json] [--follow] [--format TEMPLATE|waybar]
       tidewell habit list | habit count NAME | habit reset NAME
       tidewell task add [--list NAME] TEXT | task list [--list NAME] | task lists
       tidewell export FILE.json [--csv DIR]
       tidewell import --replace|--merge FILE.json
       tidewell restore-backup --list | DATE | FILE

Without a command, starts Tidewell, or brings the running one forward.
--background starts it without the hub window when a widget is in the tray or
floating (for autostart); a Tidewell already running is left as it is.
The commands talk to the running Tidewell over the session bus and never start it.
export writes every record as one JSON document (--csv also writes habit_history.csv
and focus_sessions.csv into DIR); import checks the whole file first, then either
replaces all data with it or merges it in (records matched by id; of two records of
the same habit and day, the larger count stays). Both work whether or not Tidewell
runs; with it running they go through it.
restore-backup --list shows the daily backups of the store (kept for a week, and one
a month for half a year); restore-backup DATE (YYYY-MM-DD) or FILE puts that backup
in the store's place, keeping the store as it was beside it, and restarts Tidewell
when it runs.

Status templates: {phase} {phase_icon} {remaining} {state} {focus_count} {percentage}
  default: '{phase} {remaining} {state}'; 'waybar' prints the JSON a waybar custom
  module reads; --follow prints a new line whenever the status changes.

Options:
  -h, --help     show this text
  -v, --version  show the version

Exit status:
  0  done
  1  Tidewell is not running (or quit while following)
  2  the command line is wrong
  3  Tidewell refused the request (no such habit, list or task; empty text;
     a file that is not a valid export)
)");
}
