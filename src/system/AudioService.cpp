#include "AudioService.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QMetaEnum>
#include <QMutexLocker>
#include <QSoundEffect>
#include <QUrl>

AudioService& AudioService::shared()
{
    static auto* instance = new AudioService(QCoreApplication::instance());
    return *instance;
}

AudioService::AudioService(QObject* parent)
    : QObject(parent)
{}

QString AudioService::name(Sound sound)
{
    QString key = QString::fromLatin1(QMetaEnum::fromType<Sound>().valueToKey(int(sound)));
    key[0] = key[0].toLower();
    return key;
}

bool AudioService::isMuted() const
{
    return m_muted;
}

void AudioService::setMuted(bool muted)
{
    if (m_muted == muted)
        return;
    m_muted = muted;
    emit isMutedChanged();
}

QString AudioService::resourceDirectory() const
{
    if (!m_resourceDirectory.isEmpty())
        return m_resourceDirectory;
    // Installed layout: <prefix>/bin/tidewell and <prefix>/share/tidewell.
    return QCoreApplication::applicationDirPath() + QStringLiteral("/../share/tidewell");
}

void AudioService::setResourceDirectory(const QString& path)
{
    m_resourceDirectory = path;
}

void AudioService::setBundleRoot(const QString& path)
{
    m_bundleRoot = path;
}

QString AudioService::locateSound(const QString& name) const
{
    const QString file = name + QStringLiteral(".wav");
    const QString dir = resourceDirectory();
    const QStringList candidates{dir + QStringLiteral("/Sounds/") + file, dir + u'/' + file,
                                 m_bundleRoot + QStringLiteral("/Sounds/") + file,
                                 m_bundleRoot + u'/' + file};
    for (const QString& candidate : candidates) {
        if (QFileInfo::exists(candidate))
            return candidate;
    }
    return {};
}

void AudioService::play(Sound sound)
{
    if (m_muted)
        return;
    const QString soundName = name(sound);
    QSoundEffect* player = nullptr;
    {
        QMutexLocker locker(&m_lock);
        player = m_players.value(soundName);
    }
    if (!player) {
        const QString path = locateSound(soundName);
        if (path.isEmpty()) {
            qWarning("AudioService: missing sound %s.wav", qPrintable(soundName));
            return;
        }
        player = new QSoundEffect(this);
        const QUrl url = path.startsWith(u':')
                             ? QUrl(QStringLiteral("qrc") + path)
                             : QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath());
        // Decoding happens in the background; a file that fails is dropped from the
        // cache so the next play tries again.
        connect(player, &QSoundEffect::statusChanged, this, [this, player, soundName] {
            if (player->status() != QSoundEffect::Error)
                return;
            qWarning("AudioService: failed to load %s: %s", qPrintable(soundName),
                     "the file is not a playable WAV sound");
            QMutexLocker locker(&m_lock);
            if (m_players.value(soundName) == player)
                m_players.remove(soundName);
            player->deleteLater();
        });
        player->setSource(url);
        {
            QMutexLocker locker(&m_lock);
            m_players.insert(soundName, player);
        }
        ++m_loads;
    }
    // A sound still playing starts again from its beginning.
    player->stop();
    player->play();
    emit played(sound);
}
