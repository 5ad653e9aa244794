#include "StoreProbe.h"

#include "SqliteFile.h"
#include "StoreSchema.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QMap>
#include <QMutex>
#include <QStringList>

#include <sqlite3.h>

namespace {
using Shapes = QMap<QString, QList<QStringList>>; // table -> its columns as table_info rows

bool shapesOf(const SqliteFile& db, Shapes* shapes, QString* error)
{
    QList<QStringList> tables;
    if (!db.rows(QStringLiteral("SELECT name FROM sqlite_master WHERE type = 'table' "
                                "AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\'"),
                 &tables, error))
        return false;
    for (const QStringList& table : std::as_const(tables)) {
        QList<QStringList> columns;
        QString quoted = table.value(0);
        quoted.replace(u'"', QStringLiteral("\"\""));
        if (!db.rows(u"PRAGMA table_info(\"" + quoted + u"\")", &columns, error))
            return false;
        // Column name, type, not-null and primary key; defaults do not matter to us.
        for (QStringList& column : columns)
            column = QStringList{column.value(1), column.value(2).toUpper(), column.value(3),
                                 column.value(5)};
        shapes->insert(table.value(0), columns);
    }
    return true;
}

// The tables a version has, read back from an in-memory database so that the
// schema statements stay the one description of them. Only the version asked for
// is built: a start needs the current one alone.
Shapes expectedShapes(int version)
{
    static QMutex lock;
    // Never destroyed: a look may still run on its thread while the process exits.
    static auto* built = new QHash<int, Shapes>;
    const QMutexLocker locker(&lock);
    if (const auto found = built->constFind(version); found != built->cend())
        return *found;
    SqliteFile db(QStringLiteral(":memory:"), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    for (const char* statement : StoreSchema::statements(version))
        sqlite3_exec(db.handle(), statement, nullptr, nullptr, nullptr);
    Shapes tables;
    QString ignored;
    shapesOf(db, &tables, &ignored);
    built->insert(version, tables);
    return tables;
}

StoreProbe::Result refused(const QString& reason, bool restorable = false)
{
    return {StoreProbe::Verdict::Refused, reason, 0, restorable};
}
} // namespace

StoreProbe::Result StoreProbe::examine(const QString& path)
{
    if (path == u":memory:")
        return {Verdict::Empty, {}};
    const QFileInfo file(path);
    const QString folder = file.absolutePath();
    if (QFileInfo(folder).exists() && !QFileInfo(folder).isWritable())
        return refused(u"the folder " + folder + u" is not writable");
    if (!file.exists() || (file.isFile() && file.size() == 0))
        return {Verdict::Empty, {}};

    const SqliteFile reader(SqliteFile::readOnlyUri(path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
    if (!reader.isOpen())
        return refused(reader.error(), reader.failedOnDamage());
    QString error;
    QList<QStringList> rows;
    if (!reader.rows(QStringLiteral("PRAGMA user_version"), &rows, &error))
        return refused(error, reader.failedOnDamage());
    const int version = rows.value(0).value(0).toInt();
    if (version > StoreSchema::Version)
        return refused(QStringLiteral("the store was written by a newer version of Tidewell "
                                      "(schema %1, this version reads %2)")
                           .arg(version)
                           .arg(StoreSchema::Version));
    Shapes shapes;
    if (!shapesOf(reader, &shapes, &error))
        return refused(reader.failedOnDamage() ? u"the file is damaged: " + error : error,
                       reader.failedOnDamage());
    if (version == 0 && !shapes.isEmpty())
        return refused(QStringLiteral("the file holds tables of another program, not a "
                                      "Tidewell store"),
                       true);

    if (version > 0) {
        const Shapes expected = expectedShapes(version);
        for (auto table = expected.begin(); table != expected.end(); ++table) {
            if (!shapes.contains(table.key()))
                return refused(u"the store lacks the table " + table.key() +
                                   u" (it was not written by Tidewell)",
                               true);
            if (shapes.value(table.key()) != table.value())
                return refused(u"the table " + table.key() +
                                   u" does not have the columns Tidewell writes (it was not "
                                   u"written by Tidewell)",
                               true);
        }
    }

    // Opening for writing changes nothing; SQLite falls back to read-only when the
    // file cannot be written (permissions, an immutable file, a read-only mount).
    const SqliteFile writer(path, SQLITE_OPEN_READWRITE);
    if (!writer.isOpen())
        return refused(writer.error());
    if (sqlite3_db_readonly(writer.handle(), "main") != 0)
        return refused(QStringLiteral("the file is read-only, so nothing could be saved"));
    if (version == 0)
        return {Verdict::Empty, {}, 0};
    return {version == StoreSchema::Version ? Verdict::Current : Verdict::Older, {}, version};
}

QString StoreProbe::damage(const QString& path)
{
    const SqliteFile reader(SqliteFile::readOnlyUri(path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
    return reader.damage();
}
