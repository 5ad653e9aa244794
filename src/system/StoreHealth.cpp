#include "StoreHealth.h"

#include "ModelContext.h"

StoreHealth::StoreHealth(ModelContext& context, QObject* parent)
    : QObject(parent)
{
    connect(&context, &ModelContext::saved, this, [this] { setProblem({}); });
    connect(&context, &ModelContext::saveFailed, this, [this, &context](const QString& reason) {
        if (!context.damage().isEmpty())
            return; // said once, by the damage line below
        const bool first = m_problem.isEmpty();
        setProblem(u"Your latest changes could not be saved: " + reason);
        if (!first)
            return;
        const QString title = QStringLiteral("Tidewell cannot save your changes");
        const QString body = u"They are kept while Tidewell runs and saved as soon as the store "
                             u"takes them again. The store said: " +
                             reason;
        emit announced(title, body);
    });
    connect(&context, &ModelContext::damaged, this, [this](const QString& problem) {
        setProblem(damageLine(problem));
        emit announced(QStringLiteral("Tidewell's store is damaged"),
                       u"Tidewell stopped saving to it, so nothing gets worse. Changes you make "
                       u"now are not saved. Restore a backup from the hub: File ▸ Restore from "
                       u"backup… The store said: " +
                           problem);
    });
    if (!context.damage().isEmpty())
        setProblem(damageLine(context.damage()));
}

QString StoreHealth::damageLine(const QString& problem)
{
    return u"The store is damaged (" + problem +
           u"): changes are not saved. Choose File ▸ Restore from backup…";
}

void StoreHealth::setProblem(const QString& text)
{
    if (m_problem == text)
        return;
    m_problem = text;
    emit problemChanged();
}
