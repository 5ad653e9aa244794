#include "SyncBaseStore.h"

#include "DataStore.h"
#include "ModelContext.h"
#include "StoreConnection.h"

SyncBaseStore::SyncBaseStore(DataStore& store)
    : m_store(store)
{}

std::optional<SyncBase> SyncBaseStore::load(const QString& resource, const QString& server) const
{
    QList<QVariantList> rows;
    if (!m_store.connection().exec(
            QStringLiteral("SELECT \"server\", \"version\", \"body\", \"ids\", \"day\" "
                           "FROM sync_base WHERE \"resource\" = ?"),
            {resource}, &rows) ||
        rows.isEmpty())
        return std::nullopt;
    const QVariantList& row = rows.front();
    SyncBase base{row.value(0).toString(), row.value(1).toLongLong(), row.value(2).toByteArray(),
                  row.value(3).toString().toUtf8(),
                  QDate::fromString(row.value(4).toString(), Qt::ISODate)};
    if (base.server != server)
        return std::nullopt;
    return base;
}

bool SyncBaseStore::save(const QString& resource, const SyncBase& base, QString* error)
{
    if (!m_store.mainContext().damage().isEmpty()) {
        if (error)
            *error = m_store.mainContext().damage();
        return false;
    }
    return m_store.connection().exec(
        QStringLiteral("INSERT OR REPLACE INTO sync_base "
                       "(\"resource\", \"server\", \"version\", \"body\", \"ids\", \"day\") "
                       "VALUES (?, ?, ?, ?, ?, ?)"),
        {resource, base.server, base.version, base.body, QString::fromUtf8(base.ids),
         base.day.toString(Qt::ISODate)},
        nullptr, error);
}

void SyncBaseStore::clear()
{
    if (m_store.mainContext().damage().isEmpty())
        m_store.connection().exec(QStringLiteral("DELETE FROM sync_base"));
}
