#pragma once

#include <QObject>

#include <memory>

// Says when the wall clock moved other than by time passing: the machine woke
// from suspend, or the system time was changed. Timers count monotonic time, so
// whatever is due by the wall clock is then due at once. Event-driven: nothing
// polls, so an idle app stays asleep. One implementation per platform; create()
// picks this platform's, or one that never fires where there is none.
class ClockJumps : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;
    static std::unique_ptr<ClockJumps> create();

signals:
    void jumped();
};
