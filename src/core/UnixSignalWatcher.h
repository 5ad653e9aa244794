#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGTERM and SIGINT into a Qt signal delivered on the main thread.
class UnixSignalWatcher final : public QObject
{
    Q_OBJECT

public:
    explicit UnixSignalWatcher(QObject* parent = nullptr);
    ~UnixSignalWatcher() override;

signals:
    void terminationRequested();

private:
    QSocketNotifier* m_notifier = nullptr;
};
