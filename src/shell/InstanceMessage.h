#pragma once

#include <QByteArray>
#include <QString>

// What a second launch hands the running instance over its socket: one line of
// compact JSON, either {"command":"activate"} or {"command":"open","url":...}, each
// with an optional activation token.
struct InstanceMessage
{
    static constexpr qsizetype MaxBytes = 64 * 1024;

    QString url;        // empty: show the hub
    QString activation; // the desktop's activation token, if it gave one

    // False when `data` is not exactly one of the two forms.
    static bool parse(const QByteArray& data, InstanceMessage* message);
    QByteArray encode() const;
};
