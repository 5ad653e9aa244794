#include "StoreHealth.h"

#include "ModelContext.h"

StoreHealth::StoreHealth(ModelContext& context, QObject* parent)
    : QObject(parent)
{
    connect(&context, &ModelContext::saved, this, [this] { setProblem({}); });
    connect(&context, &ModelContext::saveFailed, this, [this](const QString& reason) {
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
}

void StoreHealth::setProblem(const QString& text)
{
    if (m_problem == text)
        return;
    m_problem = text;
    emit problemChanged();
}
