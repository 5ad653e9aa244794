#pragma once

#include "ExportDocument.h"

#include <QStringList>
#include <QTextStream>

#include <functional>
#include <optional>

// `tidewell export FILE.json [--csv DIR]`, `tidewell import --replace|--merge
// FILE.json` and `tidewell restore-backup --list|DATE|FILE`. With Tidewell running
// they go through it, so its widgets show an import (or a restore) at once;
// otherwise they open the store themselves.
class DataCommand
{
public:
    enum Exit { Ok = 0, Failed = 1, Usage = 2, Refused = 3 };

    struct Request
    {
        bool isImport = false;
        bool isRestore = false; // `file` is the store file to restore
        ExportDocument::Mode mode = ExportDocument::Mode::Replace;
        QString file;         // absolute
        QString csvDirectory; // absolute; an export's, when asked for
    };
    // Gives the request to the running Tidewell: the exit status, or nothing when
    // none can be reached (ControlCommand::handOff).
    using HandOff =
        std::function<std::optional<int>(const Request&, QTextStream& out, QTextStream& err)>;

    static bool handles(const QStringList& args);
    static int run(const QStringList& args, QTextStream& out, QTextStream& err,
                   const HandOff& handOff);
    // What a finished request prints; `summary` is an import's, line by line.
    static void report(const Request& request, const QStringList& summary, QTextStream& out);
};
