#pragma once

#include <QObject>
#include <QString>

#include <memory>

class SleepInhibitor;

// Keeps the display from idle sleep while held (org.freedesktop.ScreenSaver
// Inhibit). The system is asked without waiting: isHeld turns true when it
// grants the hold. Used from the GUI thread only.
class PowerService final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isHeld READ isHeld NOTIFY isHeldChanged)

public:
    // Holds the display awake through `inhibitor` (SleepInhibitor::create() on this desktop).
    explicit PowerService(std::unique_ptr<SleepInhibitor> inhibitor, QObject* parent = nullptr);

    // A second acquire while held or asked for does nothing; a refusal leaves isHeld false.
    void acquire(const QString& reason);
    // Harmless when nothing is held. A hold granted after its release is given back at once.
    void release();
    bool isHeld() const { return m_held; }
    quint32 assertionID() const { return m_assertionID; }

    ~PowerService() override;

signals:
    void isHeldChanged();

private:
    std::unique_ptr<SleepInhibitor> m_inhibitor;
    quint32 m_assertionID = 0;
    bool m_held = false;
    bool m_wanted = false; // acquired and not released since
    bool m_asking = false; // an inhibit call is on its way
};
