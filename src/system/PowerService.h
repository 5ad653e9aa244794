#pragma once

#include <QObject>
#include <QString>

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

signals:
    void isHeldChanged();
};
