#pragma once

#include <QDate>
#include <QList>
#include <QString>

// The daily copies of the store in <store folder>/backups, named
// store-YYYY-MM-DD.sqlite: written only as a whole, checked copy, kept for the
// last 7 days and the first copy of each of the last 6 months.
class StoreBackups
{
public:
    static constexpr int DailyKept = 7;
    static constexpr int MonthsKept = 6;

    struct Entry
    {
        QDate day;
        QString path;
        // What the copy holds, for choosing one; -1 when it cannot be read.
        int habits = -1;
        int lists = -1;
        int tasks = -1;
        int focusSessions = -1;
    };

    explicit StoreBackups(const QString& folder);
    // The backups folder of the store at `storePath`.
    static QString folderFor(const QString& storePath);

    QString folder() const { return m_folder; }
    QString pathFor(QDate day) const;
    bool has(QDate day) const;

    // Every copy, newest first, with what each holds.
    QList<Entry> list() const;
    // The copy of `day`, or an empty entry.
    Entry find(QDate day) const;
    // What the store file at `path` holds; the counts stay -1 when it is unreadable.
    static Entry describe(const QString& path);

    // Copies the store at `storePath` as the backup of `day`: a consistent snapshot
    // into a temporary file, checked, then renamed into place. A copy that fails
    // its check is deleted and never takes the name.
    bool write(const QString& storePath, QDate day, QString* error) const;

    // Deletes the copies no longer kept on `today` (and leftovers of a write cut
    // short); the paths deleted.
    QStringList rotate(QDate today) const;
    // Of `days`, those kept on `today`.
    static QList<QDate> kept(QList<QDate> days, QDate today);

private:
    QList<QDate> days() const;

    QString m_folder;
};
