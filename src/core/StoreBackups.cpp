#include "StoreBackups.h"

#include "SqliteFile.h"
#include "StoreSchema.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

namespace {
const QString kFormat = QStringLiteral("yyyy-MM-dd");
const QString kPartial = QStringLiteral(".partial");

// The day of a backup named store-YYYY-MM-DD.sqlite, digits exactly where they
// belong; invalid for any other name. (No regular expression: the listing runs at
// start-up once a day, and a pattern would load its engine for this alone.)
QDate dayOf(const QString& fileName)
{
    const QLatin1String prefix("store-"), suffix(".sqlite");
    if (fileName.size() != prefix.size() + 10 + suffix.size() || !fileName.startsWith(prefix) ||
        !fileName.endsWith(suffix))
        return {};
    const QStringView day = QStringView(fileName).mid(prefix.size(), 10);
    for (qsizetype i = 0; i < day.size(); ++i) {
        const bool dash = i == 4 || i == 7;
        if (dash ? day[i] != u'-' : day[i] < u'0' || day[i] > u'9')
            return {};
    }
    return QDate::fromString(day.toString(), kFormat);
}

// A renamed file survives a power cut only once its bytes are on disk.
bool flushToDisk(const QString& path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = ::fsync(fd) == 0;
    ::close(fd);
    return ok;
}
} // namespace

StoreBackups::StoreBackups(const QString& folder)
    : m_folder(folder)
{}

QString StoreBackups::folderFor(const QString& storePath)
{
    return QFileInfo(storePath).absolutePath() + QStringLiteral("/backups");
}

QString StoreBackups::pathFor(QDate day) const
{
    return m_folder + QStringLiteral("/store-") + day.toString(kFormat) + QStringLiteral(".sqlite");
}

bool StoreBackups::has(QDate day) const
{
    return QFileInfo::exists(pathFor(day));
}

QList<QDate> StoreBackups::days() const
{
    QList<QDate> out;
    for (const QString& name :
         QDir(m_folder).entryList({QStringLiteral("store-*.sqlite")}, QDir::Files)) {
        if (const QDate day = dayOf(name); day.isValid())
            out.append(day);
    }
    std::sort(out.begin(), out.end(), std::greater<>());
    return out;
}

QList<StoreBackups::Entry> StoreBackups::list() const
{
    QList<Entry> out;
    for (QDate day : days()) {
        Entry entry = describe(pathFor(day));
        entry.day = day;
        out.append(entry);
    }
    return out;
}

StoreBackups::Entry StoreBackups::find(QDate day) const
{
    if (!day.isValid() || !has(day))
        return {};
    Entry entry = describe(pathFor(day));
    entry.day = day;
    return entry;
}

StoreBackups::Entry StoreBackups::describe(const QString& path)
{
    Entry entry;
    entry.path = path;
    entry.day = dayOf(QFileInfo(path).fileName());
    const SqliteFile file(SqliteFile::readOnlyUri(path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
    const auto count = [&file](const char* table) {
        return file.value(u"SELECT count(*) FROM " + QLatin1String(table), QStringLiteral("-1"))
            .toInt();
    };
    entry.habits = count("habit");
    entry.lists = count("task_list");
    entry.tasks = count("task_item");
    entry.focusSessions = count("focus_session");
    return entry;
}

bool StoreBackups::write(const QString& storePath, QDate day, QString* error) const
{
    if (!QDir().mkpath(m_folder)) {
        *error = u"cannot create the folder " + m_folder;
        return false;
    }
    const QString target = pathFor(day);
    const QString partial = target + kPartial;
    QFile::remove(partial);
    const auto fail = [&](const QString& why) {
        QFile::remove(partial);
        *error = why;
        return false;
    };
    {
        // A read transaction of its own: the copy is the store as of one moment,
        // while the app goes on writing.
        const SqliteFile source(SqliteFile::readOnlyUri(storePath),
                                SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
        QList<QStringList> ignored;
        QString why;
        if (!source.isOpen())
            return fail(source.error());
        source.readThroughOnce();
        if (!source.rows(QStringLiteral("VACUUM INTO ?"), &ignored, &why, partial))
            return fail(u"the copy could not be written: " + why);
    }
    {
        const SqliteFile copy(partial, SQLITE_OPEN_READONLY);
        if (const QString damage = copy.damage(); !damage.isEmpty())
            return fail(u"the copy did not pass its check: " + damage);
        const int version = copy.value(QStringLiteral("PRAGMA user_version")).toInt();
        if (version < 1 || version > StoreSchema::Version)
            return fail(QStringLiteral("the copy is not a Tidewell store"));
    }
    if (!flushToDisk(partial))
        return fail(u"the copy could not be flushed to disk: " + partial);
    QFile::remove(target);
    if (!QFile::rename(partial, target))
        return fail(u"the copy could not be renamed to " + target);
    flushToDisk(m_folder);
    return true;
}

QList<QDate> StoreBackups::kept(QList<QDate> days, QDate today)
{
    std::sort(days.begin(), days.end(), std::greater<>());
    QList<QDate> out = days.mid(0, DailyKept);
    const int thisMonth = today.year() * 12 + today.month() - 1;
    // The first copy of each recent month: it stays the same while the month goes on.
    for (auto day = days.crbegin(); day != days.crend(); ++day) {
        const int month = day->year() * 12 + day->month() - 1;
        if (thisMonth - month >= MonthsKept || month > thisMonth)
            continue;
        const bool monthTaken = std::any_of(out.cbegin(), out.cend(), [&](QDate k) {
            return k.year() * 12 + k.month() - 1 == month && k <= *day;
        });
        if (!monthTaken)
            out.append(*day);
    }
    std::sort(out.begin(), out.end(), std::greater<>());
    return out;
}

QStringList StoreBackups::rotate(QDate today) const
{
    QStringList deleted;
    const QList<QDate> keep = kept(days(), today);
    for (QDate day : days()) {
        if (!keep.contains(day) && QFile::remove(pathFor(day)))
            deleted.append(pathFor(day));
    }
    for (const QString& name :
         QDir(m_folder).entryList({u"store-*.sqlite" + kPartial}, QDir::Files | QDir::Hidden)) {
        if (QFile::remove(m_folder + u'/' + name))
            deleted.append(m_folder + u'/' + name);
    }
    return deleted;
}
