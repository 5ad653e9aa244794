#pragma once

#include <QCoro/QCoroTask>
#include <QObject>
#include <QString>

// Keeps the local habits, task lists and timer state in step with the web
// service: whole-resource pushes after local changes, and a full pull on demand.
class SyncEngine final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isSyncing READ isSyncing NOTIFY isSyncingChanged)
    Q_PROPERTY(bool isApplyingRemote READ isApplyingRemote NOTIFY isApplyingRemoteChanged)
    Q_PROPERTY(QString lastError READ lastError NOTIFY lastErrorChanged)

public:
    static SyncEngine& shared();

    QCoro::Task<> pullAll();
    // Each sends its whole resource as read from the store now; dropped while
    // signed out or while a pull is being applied.
    QCoro::Task<> pushHabits();
    QCoro::Task<> pushTasks();
    QCoro::Task<> pushPomodoro();

    bool isSyncing() const;
    bool isApplyingRemote() const;
    // Empty when there is no error.
    QString lastError() const;

signals:
    void isSyncingChanged();
    void isApplyingRemoteChanged();
    void lastErrorChanged();
};
