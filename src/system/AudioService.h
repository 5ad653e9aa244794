#pragma once

#include <QHash>
#include <QMutex>
#include <QObject>
#include <QString>

class QSoundEffect;

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

    static AudioService& shared();
    static QString name(Sound sound);

    bool isMuted() const;
    void setMuted(bool muted);

    // Does nothing while muted; otherwise plays the sound from its beginning.
    void play(Sound sound);

signals:
    void isMutedChanged();
    // A sound really started (not muted, file found and loaded). Tests observe this.
    void played(AudioService::Sound sound);
};
