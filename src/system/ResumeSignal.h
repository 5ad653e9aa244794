#pragma once

#include <QObject>

#include <memory>

// Says when the machine has woken from suspend. One implementation per platform;
// create() picks this platform's, or one that never fires where there is none.
class ResumeSignal : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;
    static std::unique_ptr<ResumeSignal> create();

signals:
    void resumed();
};
