#pragma once

#include <QString>

// Looks at a store file before the app depends on it, and never changes it: is it
// ours, of a version we read, and writable? Only checks whose cost does not grow
// with the store run at open; the full check (damage()) runs later, on a thread of
// its own. The checks use SQLite directly (not Qt SQL), so they can run before the
// application object exists, overlapping the rest of start-up.
class StoreProbe
{
public:
    StoreProbe() = delete;

    enum class Verdict {
        Empty,   // no file, or one without any table: create the schema
        Current, // our tables at the current version
        Older,   // our tables at an earlier version (`version`): upgrade them
        Refused, // anything else; `reason` says why
    };

    struct Result
    {
        Verdict verdict = Verdict::Refused;
        QString reason;
        int version = 0;
        // Refused as damaged or not ours: a backup could take its place (not so for
        // a read-only file or one from a newer Tidewell).
        bool restorable = false;
    };

    static Result examine(const QString& path);
    // Reads the whole file: empty when it is whole, else what is damaged.
    static QString damage(const QString& path);
};
