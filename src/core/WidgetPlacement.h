#pragma once

#include "Record.h"

// Where one widget is shown: as a status-bar (tray) item, a floating panel, both or neither.
class WidgetPlacement final : public Record
{
    Q_OBJECT
    Q_PROPERTY(QString widgetId READ widgetId WRITE setWidgetId NOTIFY widgetIdChanged)
    // Legacy single-choice placement; only the migration reads it.
    Q_PROPERTY(QString mode READ mode WRITE setMode NOTIFY modeChanged)
    Q_PROPERTY(bool inStatusBar READ inStatusBar WRITE setInStatusBar NOTIFY inStatusBarChanged)
    Q_PROPERTY(bool inFloating READ inFloating WRITE setInFloating NOTIFY inFloatingChanged)
    // The floating panel's last frame (see DesktopFrame), or a null string.
    Q_PROPERTY(QString desktopFrameJSON READ desktopFrameJSON WRITE setDesktopFrameJSON NOTIFY
                   desktopFrameJSONChanged)
    Q_PROPERTY(bool alwaysOnTop READ alwaysOnTop WRITE setAlwaysOnTop NOTIFY alwaysOnTopChanged)

public:
    static constexpr RecordKind Kind = RecordKind::WidgetPlacement;

    explicit WidgetPlacement(const QString& widgetId, bool inFloating = false);
    WidgetPlacement() = default;

    RecordKind kind() const override { return Kind; }
    QString key() const override { return m_widgetId; }

    QString widgetId() const { return m_widgetId; }
    QString mode() const { return m_mode; }
    bool inStatusBar() const { return m_inStatusBar; }
    bool inFloating() const { return m_inFloating; }
    QString desktopFrameJSON() const { return m_desktopFrameJSON; }
    bool alwaysOnTop() const { return m_alwaysOnTop; }

    void setWidgetId(const QString& v) { assign(m_widgetId, v, &WidgetPlacement::widgetIdChanged); }
    void setMode(const QString& v) { assign(m_mode, v, &WidgetPlacement::modeChanged); }
    void setInStatusBar(bool v) { assign(m_inStatusBar, v, &WidgetPlacement::inStatusBarChanged); }
    void setInFloating(bool v) { assign(m_inFloating, v, &WidgetPlacement::inFloatingChanged); }
    void setDesktopFrameJSON(const QString& v)
    {
        assign(m_desktopFrameJSON, v, &WidgetPlacement::desktopFrameJSONChanged);
    }
    void setAlwaysOnTop(bool v) { assign(m_alwaysOnTop, v, &WidgetPlacement::alwaysOnTopChanged); }

    // Turns a legacy "statusbar"/"desktop" mode into its flag while both flags are
    // clear. Never writes `mode`; the caller's next save persists the change.
    void migrateFromLegacyModeIfNeeded();

signals:
    void widgetIdChanged();
    void modeChanged();
    void inStatusBarChanged();
    void inFloatingChanged();
    void desktopFrameJSONChanged();
    void alwaysOnTopChanged();

private:
    QString m_widgetId;
    QString m_mode = QStringLiteral("off");
    bool m_inStatusBar = false;
    bool m_inFloating = false;
    QString m_desktopFrameJSON;
    bool m_alwaysOnTop = false;
};
