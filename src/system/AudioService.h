#pragma once

#include <QHash>
#include <QMutex>
#include <QObject>
#include <QString>

#include <chrono>
#include <memory>

class ModuleLoader;
class SoundBackend;
class SoundEffect;

// Plays the short interface sounds, one cached player per sound.
class AudioService final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isMuted READ isMuted WRITE setMuted NOTIFY isMutedChanged)

public:
    // The catalogue; each name is also the base name of its WAV file.
    enum class Sound {
        FinishPomodoro,
        Check,
        Uncheck,
        NewTask,
        Error1,
        ChangeList,
        WaterTrackCount,
        WaterTrackReset,
        CheckMoveTask,
        UnCheckMoveTask,
    };
    Q_ENUM(Sound)

    // Loads the sound module through `modules` when the first sound plays.
    explicit AudioService(const ModuleLoader& modules, QObject* parent = nullptr);
    ~AudioService() override;
    static QString name(Sound sound);

    bool isMuted() const;
    void setMuted(bool muted);
    // The user's "Sounds" switch: stored, and the sounds follow it.
    void setSoundsEnabled(bool on);
    // Mutes or unmutes as the stored preference says (at launch, and when the
    // preference may have changed elsewhere).
    void applySoundsPreference();

    // Does nothing while muted; otherwise plays the sound from its beginning.
    void play(Sound sound);

    // Where the sound files are looked for first: <dir>/Sounds, then <dir>; then the
    // copies compiled into the binary. Defaults to the installed share/tidewell.
    QString resourceDirectory() const;
    void setResourceDirectory(const QString& path);
    // The copies shipped inside the binary (":"); tests point it elsewhere.
    void setBundleRoot(const QString& path);
    // The file for a sound name, or empty when none of the four places has it.
    QString locateSound(const QString& name) const;
    // How many players were created (each sound is decoded once).
    int loadCount() const { return m_loads; }

signals:
    void isMutedChanged();
    // A sound really started (not muted, file found and loaded). Tests observe this.
    void played(AudioService::Sound sound);

private:
    // The sound module, loaded on the first sound; null when it cannot be loaded.
    SoundBackend* backend();
    void forget(const QString& soundName, const SoundEffect* effect);
    // Waits, at most `limit`, until no sound is being decoded any more.
    void finishLoading(std::chrono::milliseconds limit);

    mutable QMutex m_lock; // guards m_players
    QHash<QString, std::shared_ptr<SoundEffect>> m_players;
    const ModuleLoader& m_modules;
    SoundBackend* m_backend = nullptr;
    bool m_backendTried = false;
    QString m_resourceDirectory;
    QString m_bundleRoot = QStringLiteral(":");
    bool m_muted = false;
    int m_loads = 0;
};
