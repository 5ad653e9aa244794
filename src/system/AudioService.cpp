#include "AudioService.h"

#include "ModuleLoader.h"
#include "Preferences.h"
#include "SoundBackend.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QMetaEnum>
#include <QMutexLocker>
#include <QThread>
#include <QUrl>

#include <algorithm>

AudioService::AudioService(const ModuleLoader& modules, QObject* parent)
    : QObject(parent)
    , m_modules(modules)
{}

AudioService::~AudioService()
{
    // Qt Multimedia deadlocks when a player is released while it still decodes
    // a sound (its cache waits for the decoder while holding a lock the decoder
    // needs), so such a decode is let finish first.
    finishLoading(std::chrono::seconds(2));
}

SoundBackend* AudioService::backend()
{
    if (m_backendTried)
        return m_backend;
    m_backendTried = true;
    QString why;
    m_backend = qobject_cast<SoundBackend*>(m_modules.load(QStringLiteral("tidewell_sound"), &why));
    if (!m_backend)
        qWarning("AudioService: no sound module (%s); sounds stay silent", qPrintable(why));
    return m_backend;
}

void AudioService::forget(const QString& soundName, const SoundEffect* effect)
{
    std::shared_ptr<SoundEffect> dropped; // destroyed after the lock is released
    QMutexLocker locker(&m_lock);
    const auto it = m_players.constFind(soundName);
    if (it != m_players.cend() && it->get() == effect) {
        dropped = *it;
        m_players.erase(it);
    }
}

void AudioService::finishLoading(std::chrono::milliseconds limit)
{
    const auto loading = [this] {
        QMutexLocker locker(&m_lock);
        return std::ranges::any_of(m_players,
                                   [](const auto& player) { return player->isLoading(); });
    };
    const QDeadlineTimer deadline(limit);
    while (loading() && !deadline.hasExpired()) {
        // The decoder reports back through queued calls; only those are delivered,
        // since the rest of the application may already be gone.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall);
        QThread::msleep(5);
    }
}

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

void AudioService::setSoundsEnabled(bool on)
{
    Preferences::setSoundsEnabled(on);
    setMuted(!on);
}

void AudioService::applySoundsPreference()
{
    setMuted(!Preferences::soundsEnabled());
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
    std::shared_ptr<SoundEffect> player;
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
        SoundBackend* sounds = backend();
        if (!sounds)
            return;
        const QUrl url = path.startsWith(u':')
                             ? QUrl(QStringLiteral("qrc") + path)
                             : QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath());
        // Decoding happens in the background; a file that fails is dropped from the
        // cache so the next play tries again.
        // The failure arrives later, when `self` already names the new effect.
        auto self = std::make_shared<const SoundEffect*>(nullptr);
        player = sounds->load(url, [this, soundName, self] {
            qWarning("AudioService: failed to load %s: %s", qPrintable(soundName),
                     "the file is not a playable WAV sound");
            forget(soundName, *self);
        });
        *self = player.get();
        {
            QMutexLocker locker(&m_lock);
            m_players.insert(soundName, player);
        }
        ++m_loads;
    }
    player->play();
    emit played(sound);
}
