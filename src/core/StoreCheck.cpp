#include "StoreCheck.h"

#include "Clock.h"
#include "StoreBackups.h"
#include "StoreProbe.h"

#include <QCoreApplication>
#include <QFile>
#include <QSaveFile>
#include <QThread>

namespace {
QString runningMarker(const QString& storePath)
{
    return storePath + QStringLiteral(".running");
}

QString checkedRecord(const QString& storePath)
{
    return storePath + QStringLiteral(".checked");
}
} // namespace

StoreCheck::StoreCheck(const QString& storePath, const Clock& clock, QObject* parent)
    : QObject(parent)
    , m_storePath(storePath)
    , m_clock(clock)
{}

StoreCheck::~StoreCheck()
{
    if (m_thread) {
        m_thread->wait();
        delete m_thread;
    }
}

void StoreCheck::begin()
{
    const QString marker = runningMarker(m_storePath);
    m_unclean = QFile::exists(marker);
    QFile file(marker);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(QByteArray::number(QCoreApplication::applicationPid()) + '\n');
}

void StoreCheck::end()
{
    QFile::remove(runningMarker(m_storePath));
}

QDate StoreCheck::lastPassed() const
{
    QFile file(checkedRecord(m_storePath));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QDate::fromString(QString::fromLatin1(file.readAll().trimmed()), Qt::ISODate);
}

bool StoreCheck::isDue() const
{
    return m_unclean || lastPassed() != m_clock.now().date();
}

void StoreCheck::runIfDue()
{
    if (isDue())
        run();
}

void StoreCheck::run()
{
    if (m_thread || m_storePath == u":memory:")
        return;
    const QDate day = m_clock.now().date();
    const QString path = m_storePath;
    const bool backUp = !StoreBackups(StoreBackups::folderFor(path)).has(day);
    m_thread = QThread::create([this, path, day, backUp] {
        const Outcome outcome = work(path, day, backUp);
        QMetaObject::invokeMethod(
            this, [this, outcome, day] { conclude(outcome, day); }, Qt::QueuedConnection);
    });
    m_thread->start(QThread::LowestPriority);
}

StoreCheck::Outcome StoreCheck::work(const QString& storePath, QDate day, bool backUp)
{
    Outcome outcome;
    outcome.damage = StoreProbe::damage(storePath);
    if (!outcome.damage.isEmpty() || !backUp)
        return outcome;
    const StoreBackups backups(StoreBackups::folderFor(storePath));
    if (backups.write(storePath, day, &outcome.backupError)) {
        outcome.backup = backups.pathFor(day);
        backups.rotate(day);
    }
    return outcome;
}

void StoreCheck::conclude(const Outcome& outcome, QDate day)
{
    m_thread->wait();
    delete m_thread;
    m_thread = nullptr;
    if (outcome.damage.isEmpty()) {
        m_unclean = false;
        QSaveFile file(checkedRecord(m_storePath));
        if (file.open(QIODevice::WriteOnly)) {
            file.write(day.toString(Qt::ISODate).toLatin1() + '\n');
            file.commit();
        }
        emit passed();
        if (!outcome.backup.isEmpty())
            emit backupWritten(outcome.backup);
        else if (!outcome.backupError.isEmpty())
            emit backupFailed(outcome.backupError);
    } else {
        emit damaged(outcome.damage);
    }
    emit finished();
}
