#pragma once

#include <QString>
#include <QVariantMap>

// The timer's state as `tidewell ctl status` prints it for people, scripts and
// status bars, from the Timer interface's properties.
class StatusLine
{
public:
    // Placeholders: {phase} ("Pomodoro", "Short Break", "Long Break"), {phase_icon},
    // {remaining} (mm:ss), {state} ("running" or "stopped"), {focus_count},
    // {percentage} (of the phase gone, 0–100).
    static inline const QString DefaultTemplate = QStringLiteral("{phase} {remaining} {state}");

    explicit StatusLine(QVariantMap properties = {});
    // Takes in a PropertiesChanged's changed properties.
    void update(const QVariantMap& changed);

    QString formatted(const QString& pattern) const;
    // One line of JSON for a waybar custom module: text, tooltip, class, percentage.
    QString waybar() const;
    // Every property, one line of JSON.
    QString json() const;

    QString phaseLabel() const;
    QString phaseIcon() const;
    QString remaining() const;
    int percentage() const;

private:
    QVariantMap m_properties;
};
