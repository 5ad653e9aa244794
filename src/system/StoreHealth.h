#pragma once

#include <QObject>
#include <QString>

class ModelContext;

// Whether the store still takes what the user does. A failed save keeps the
// changes in memory for the next attempt, but the user must know they are not on
// disk yet: the first failure after a good save is announced as a notification,
// and `problem` holds a line for the hub until a save succeeds again. Damage to
// the file is announced once and stays in `problem`: nothing is saved any more.
class StoreHealth final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString problem READ problem NOTIFY problemChanged)

public:
    explicit StoreHealth(ModelContext& context, QObject* parent = nullptr);

    // Empty while saves succeed.
    QString problem() const { return m_problem; }

signals:
    void problemChanged();
    // Once per run of failures, with the notification's title and body.
    void announced(const QString& title, const QString& body);

private:
    static QString damageLine(const QString& problem);
    void setProblem(const QString& text);

    QString m_problem;
};
