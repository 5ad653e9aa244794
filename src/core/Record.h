#pragma once

#include "RecordKind.h"

#include <QObject>
#include <QPointer>

class ModelContext;

// Base of the persisted records. Each field is a Q_PROPERTY with its own NOTIFY
// signal; a write that changes nothing notifies nobody and leaves the record clean.
class Record : public QObject
{
    Q_OBJECT

public:
    virtual RecordKind kind() const = 0;
    // The record's identity in its table (the UUID text, or the widget id).
    virtual QString key() const = 0;

    // The context the record belongs to; null before insertion and after deletion.
    ModelContext* context() const { return m_context; }

protected:
    explicit Record(QObject* parent = nullptr)
        : QObject(parent)
    {}

    template <typename Self, typename T>
    void assign(T& field, const T& value, void (Self::*notify)())
    {
        if (field == value)
            return;
        field = value;
        (static_cast<Self*>(this)->*notify)();
        touch();
    }

private:
    friend class ModelContext;
    void touch();

    ModelContext* m_context = nullptr; // the owner (records are its children)
};
