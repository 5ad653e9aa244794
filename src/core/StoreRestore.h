#pragma once

#include <QDateTime>
#include <QString>

// Puts a backup in the store's place, in one step, while no connection has the
// store open (the lock held). The store as it was is moved aside beside it, never
// deleted: store-before-restore-<time>.sqlite, or store-damaged-<time>.sqlite.
class StoreRestore
{
public:
    StoreRestore() = delete;

    // Whether `candidate` is a whole Tidewell store this version reads; why not.
    static bool check(const QString& candidate, QString* error);

    // Copies `candidate` beside the store, checks the copy, moves the store aside
    // and renames the copy into its place. Nothing changes unless all of it can.
    // `aside` gets the path the old store now has (empty when there was none).
    static bool replace(const QString& storePath, const QString& candidate, bool damaged,
                        const QDateTime& now, QString* aside, QString* error);

    // What a restore leaves for the next start to tell the user (and to push
    // once): the backup restored and where the old store went.
    struct Note
    {
        QString restored;
        QString aside;
    };
    static void leaveNote(const QString& storePath, const Note& note);
    // The note, once: it is deleted as it is read.
    static Note takeNote(const QString& storePath);
};
