#include "StoreRestore.h"

#include "StoreProbe.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace {
const QStringList kCompanions{QStringLiteral("-wal"), QStringLiteral("-shm")};

QString notePath(const QString& storePath)
{
    return storePath + QStringLiteral(".restored");
}
} // namespace

bool StoreRestore::check(const QString& candidate, QString* error)
{
    if (!QFileInfo(candidate).isFile()) {
        *error = candidate + QStringLiteral(": no such file");
        return false;
    }
    // The candidate is looked at through a copy: the checks need a file they may
    // open for writing, and a backup is never changed by them.
    const QString copy = QDir::temp().filePath(
        QStringLiteral("tidewell-restore-check-%1.sqlite").arg(QCoreApplication::applicationPid()));
    QFile::remove(copy);
    const auto cleanup = qScopeGuard([&copy] { QFile::remove(copy); });
    if (!QFile::copy(candidate, copy)) {
        *error = candidate + QStringLiteral(": cannot be read");
        return false;
    }
    QFile::setPermissions(copy, QFile::ReadOwner | QFile::WriteOwner);
    const StoreProbe::Result examined = StoreProbe::examine(copy);
    if (examined.verdict == StoreProbe::Verdict::Empty) {
        *error = candidate + QStringLiteral(": not a Tidewell store (it holds no Tidewell data)");
        return false;
    }
    if (examined.verdict == StoreProbe::Verdict::Refused) {
        *error = candidate + QStringLiteral(": not a Tidewell store this version can use (") +
                 examined.reason + u')';
        return false;
    }
    if (const QString damage = StoreProbe::damage(copy); !damage.isEmpty()) {
        *error = candidate + QStringLiteral(": the file is damaged (") + damage + u')';
        return false;
    }
    return true;
}

bool StoreRestore::replace(const QString& storePath, const QString& candidate, bool damaged,
                           const QDateTime& now, QString* aside, QString* error)
{
    if (!check(candidate, error))
        return false;
    const QString incoming = storePath + QStringLiteral(".restoring");
    QFile::remove(incoming);
    if (!QFile::copy(candidate, incoming)) {
        *error = u"cannot copy " + candidate + u" beside the store";
        return false;
    }
    QFile::setPermissions(incoming, QFile::ReadOwner | QFile::WriteOwner);
    aside->clear();
    if (QFileInfo::exists(storePath)) {
        const QString stamp = now.toString(QStringLiteral("yyyyMMdd-HHmmss"));
        *aside = QFileInfo(storePath).absolutePath() +
                 (damaged ? QStringLiteral("/store-damaged-")
                          : QStringLiteral("/store-before-restore-")) +
                 stamp + QStringLiteral(".sqlite");
        if (!QFile::rename(storePath, *aside)) {
            QFile::remove(incoming);
            *error = u"cannot move the store aside to " + *aside;
            aside->clear();
            return false;
        }
        // A log left beside the store belongs to it, not to the backup.
        for (const QString& suffix : kCompanions) {
            if (QFileInfo::exists(storePath + suffix))
                QFile::rename(storePath + suffix, *aside + suffix);
        }
    }
    if (!QFile::rename(incoming, storePath)) {
        if (!aside->isEmpty())
            QFile::rename(*aside, storePath);
        QFile::remove(incoming);
        *error = u"cannot put the backup in place of " + storePath;
        return false;
    }
    return true;
}

void StoreRestore::leaveNote(const QString& storePath, const Note& note)
{
    QSaveFile file(notePath(storePath));
    if (file.open(QIODevice::WriteOnly)) {
        file.write(note.restored.toUtf8() + '\n' + note.aside.toUtf8() + '\n');
        file.commit();
    }
}

StoreRestore::Note StoreRestore::takeNote(const QString& storePath)
{
    QFile file(notePath(storePath));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    file.remove();
    return {lines.value(0), lines.value(1)};
}
