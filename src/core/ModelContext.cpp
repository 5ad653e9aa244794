#include "ModelContext.h"

#include "RecordTable.h"
#include "StoreConnection.h"

#include <QMetaProperty>

#include <algorithm>

namespace {
QString filterKey(const FetchRequest& request)
{
    return request.field + u'=' + RecordTable::toSql(request.value).toString();
}

QVariant fieldValue(const Record* record, const QString& field)
{
    return record->property(field.toLatin1().constData());
}
} // namespace

void Record::touch()
{
    if (m_context)
        m_context->recordTouched(this);
}

ModelContext::ModelContext(StoreConnection& db, QObject* parent)
    : QObject(parent)
    , m_db(db)
{}

ModelContext::~ModelContext() = default;

Record* ModelContext::findRecord(RecordKind kind, const QString& key)
{
    Slot& slot = m_slots[static_cast<int>(kind)];
    if (Record* r = slot.live.value(key))
        return r;
    if (slot.fullyLoaded || slot.deletedKeys.contains(key))
        return nullptr;
    ensureLoaded(kind, FetchRequest::where(RecordTable::of(kind).keyField(), key));
    return slot.live.value(key);
}

bool ModelContext::ensureLoaded(RecordKind kind, const FetchRequest& request)
{
    Slot& slot = m_slots[static_cast<int>(kind)];
    if (slot.fullyLoaded)
        return true;
    const QString filter = request.hasFilter() ? filterKey(request) : QString();
    if (request.hasFilter() && slot.loadedFilters.contains(filter))
        return true;

    const RecordTable& table = RecordTable::of(kind);
    QList<Record*> rows;
    QString error;
    if (!table.select(m_db, request.field, request.value, &rows, &error)) {
        qWarning("DataStore fetch failed: %s", qPrintable(error));
        ++m_readFailures;
        if (StoreConnection::isDamage(error))
            markDamaged(error.mid(StoreConnection::DamagePrefix.size()));
        return false;
    }
    for (Record* row : rows) {
        const QString key = row->key();
        // The object already in memory (maybe with unsaved changes) wins; a row
        // deleted but not yet saved stays deleted.
        if (slot.live.contains(key) || slot.deletedKeys.contains(key)) {
            delete row;
            continue;
        }
        adopt(row);
    }
    if (request.hasFilter())
        slot.loadedFilters.insert(filter);
    else
        slot.fullyLoaded = true;
    return true;
}

void ModelContext::adopt(Record* record)
{
    Slot& slot = m_slots[static_cast<int>(record->kind())];
    record->setParent(this);
    record->m_context = this;
    slot.live.insert(record->key(), record);
    slot.sequence.insert(record, m_nextSequence++);
}

QList<Record*> ModelContext::fetchRecords(RecordKind kind, const FetchRequest& request)
{
    ensureLoaded(kind, request);
    const Slot& slot = m_slots[static_cast<int>(kind)];

    QList<Record*> out;
    for (Record* r : slot.live) {
        if (!request.hasFilter() || fieldValue(r, request.field) == request.value)
            out.append(r);
    }
    std::sort(out.begin(), out.end(), [&slot](Record* a, Record* b) {
        return slot.sequence.value(a) < slot.sequence.value(b);
    });
    if (!request.sortField.isEmpty()) {
        const QByteArray field = request.sortField.toLatin1();
        std::stable_sort(out.begin(), out.end(), [&field](Record* a, Record* b) {
            return QVariant::compare(a->property(field.constData()),
                                     b->property(field.constData())) == QPartialOrdering::Less;
        });
    }
    return out;
}

bool ModelContext::insert(Record* record)
{
    Slot& slot = m_slots[static_cast<int>(record->kind())];
    if (record->m_context || findRecord(record->kind(), record->key())) {
        qWarning("DataStore insert refused: %s %s already exists",
                 qPrintable(RecordTable::of(record->kind()).name()), qPrintable(record->key()));
        return false;
    }
    slot.deletedKeys.remove(record->key());
    adopt(record);
    m_inserted.insert(record);
    emit changed(record->kind());
    return true;
}

bool ModelContext::release(Record* record)
{
    if (!record || record->m_context != this || m_inserted.contains(record) ||
        m_updated.contains(record))
        return false;
    Slot& slot = m_slots[static_cast<int>(record->kind())];
    slot.live.remove(record->key());
    slot.sequence.remove(record);
    // What was loaded is no longer all in memory: the next fetch asks the store.
    slot.fullyLoaded = false;
    slot.loadedFilters.clear();
    delete record;
    return true;
}

void ModelContext::remove(Record* record)
{
    if (!record || record->m_context != this)
        return;
    const RecordTable& table = RecordTable::of(record->kind());
    if (const auto cascade = table.cascade()) {
        const QVariant ownerId = record->property(table.keyField().toLatin1().constData());
        for (Record* child :
             fetchRecords(cascade->child, FetchRequest::where(cascade->childField, ownerId)))
            remove(child);
    }

    Slot& slot = m_slots[static_cast<int>(record->kind())];
    const QString key = record->key();
    slot.live.remove(key);
    slot.sequence.remove(record);
    if (!m_inserted.remove(record)) {
        slot.deletedKeys.insert(key);
        m_deleted.append({record->kind(), key});
    }
    m_updated.remove(record);
    record->m_context = nullptr;
    record->deleteLater();
    emit changed(record->kind());
}

void ModelContext::recordTouched(Record* record)
{
    if (!m_inserted.contains(record))
        m_updated.insert(record);
    emit changed(record->kind());
}

void ModelContext::markDamaged(const QString& problem)
{
    if (!m_damage.isEmpty() || problem.isEmpty())
        return;
    m_damage = problem;
    qWarning("DataStore damaged: %s", qPrintable(problem));
    emit damaged(problem);
}

bool ModelContext::hasChanges() const
{
    return !m_inserted.isEmpty() || !m_updated.isEmpty() || !m_deleted.isEmpty();
}

bool ModelContext::save(QString* error)
{
    if (!hasChanges())
        return true;
    QString why;
    if (!m_damage.isEmpty()) {
        why = StoreConnection::DamagePrefix + m_damage;
        if (error)
            *error = why;
        emit saveFailed(why);
        return false;
    }
    // Registration order of the kinds, then creation order within a kind.
    auto byKind = [this](const QSet<Record*>& set) {
        QList<Record*> list(set.begin(), set.end());
        std::sort(list.begin(), list.end(), [this](Record* a, Record* b) {
            const int ka = static_cast<int>(a->kind()), kb = static_cast<int>(b->kind());
            if (ka != kb)
                return ka < kb;
            return m_slots[ka].sequence.value(a) < m_slots[kb].sequence.value(b);
        });
        return list;
    };

    bool ok = m_db.begin(&why);
    // Deletes first, so that a record deleted and re-inserted with the same key
    // (a pull replacing local data) is written as its new row.
    for (const auto& [kind, key] : std::as_const(m_deleted)) {
        if (ok)
            ok = RecordTable::of(kind).remove(m_db, key, &why);
    }
    // Parents before children, in registration order, to satisfy foreign keys.
    for (Record* r : byKind(m_inserted)) {
        if (ok)
            ok = RecordTable::of(r->kind()).insert(m_db, r, &why);
    }
    for (Record* r : byKind(m_updated)) {
        if (ok)
            ok = RecordTable::of(r->kind()).update(m_db, r, &why);
    }
    if (ok)
        ok = m_db.commit(&why);
    if (!ok) {
        m_db.rollback();
        if (StoreConnection::isDamage(why))
            markDamaged(why.mid(StoreConnection::DamagePrefix.size()));
        qWarning("DataStore save failed: %s", qPrintable(why));
        if (error)
            *error = why;
        emit saveFailed(why);
        return false;
    }

    m_inserted.clear();
    m_updated.clear();
    m_deleted.clear();
    for (Slot& slot : m_slots)
        slot.deletedKeys.clear();
    emit saved();
    return true;
}
