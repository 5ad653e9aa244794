#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

class ModelContext;

// Every record of the store as an export document.
class ExportWriter
{
public:
    // Empty, with `error`, when the store cannot be read: a partial backup would
    // pass for a whole one.
    static QByteArray write(ModelContext& context, const QDateTime& now, QString* error);
};
