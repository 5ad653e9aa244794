#pragma once

#include <QByteArray>
#include <QDate>
#include <QString>

// What this computer and a versioned server last agreed on for one resource:
// the merge base when both sides change it before they next agree.
struct SyncBase
{
    QString server; // the address it was agreed with
    qint64 version = 0;
    QByteArray body; // the resource as the wire carries it
    QByteArray ids;  // the local identities of its records, in the body's order (JSON)
    QDate day;       // the day its daily counts belong to
};
