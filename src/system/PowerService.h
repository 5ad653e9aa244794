#pragma once

#include <QMutex>
#include <QObject>
#include <QString>

#include <memory>

class SleepInhibitor;

// Keeps the display from idle sleep while held (org.freedesktop.ScreenSaver Inhibit).
class PowerService final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isHeld READ isHeld NOTIFY isHeldChanged)

public:
    static PowerService& shared();

    // A second acquire while held does nothing; a failure leaves isHeld false.
    void acquire(const QString& reason);
    // Harmless when nothing is held.
    void release();
    bool isHeld() const;
    quint32 assertionID() const;

    // Tests and other platforms replace how the display is kept awake.
    void setInhibitor(std::unique_ptr<SleepInhibitor> inhibitor);
    ~PowerService() override;

signals:
    void isHeldChanged();

private:
    explicit PowerService(QObject* parent);

    mutable QMutex m_lock; // makes acquire and release atomic with each other
    std::unique_ptr<SleepInhibitor> m_inhibitor;
    quint32 m_assertionID = 0;
    bool m_held = false;
};
