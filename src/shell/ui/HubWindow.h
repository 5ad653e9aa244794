#pragma once

#include <QWidget>

class AppServices;
class QLabel;
class QLayout;
class QMenuBar;
class QVBoxLayout;
class AccountSection;
class SettingsView;
class WidgetTogglesView;
class WindowManager;

// The main window: "Tidewell" header, then in a scroll area the account
// section, the widget toggles and the settings. Closing it hides it; the app
// keeps running in the tray and on the desktop. A plain widget with a menu bar in
// its layout: a main window's dock and toolbar machinery would add code to every
// start for areas it never has.
class HubWindow final : public QWidget
{
    Q_OBJECT

public:
    HubWindow(AppServices& services, WindowManager& windows, QWidget* parent = nullptr);

    // Adds a section to the scrolling column, after the ones already there.
    void addSection(QWidget* section);
    WidgetTogglesView* toggles() const { return m_toggles; }
    SettingsView* settings() const { return m_settings; }
    // Shows, raises and activates the window; `activation` is the desktop's token for
    // the launch that asked (see WindowActivation).
    void bringForward(const QString& activation = {});
    // A line in red under the header while the store cannot save; empty hides it.
    void setStoreProblem(const QString& text);

signals:
    void quitRequested();
    void historyRequested();
    void exportRequested();
    void importRequested();
    void restoreRequested();
    // The Widgets menu or a toggle row's "Open": the widget in a window of its own.
    void widgetWindowRequested(const QString& widgetId);
    // Once, when the window is first on screen (mapped and exposed).
    void onScreen();

protected:
    void showEvent(QShowEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QMenuBar* buildMenus();
    QLayout* buildHeader(QWidget* central);
    // The sections' column (m_column), scrolled when the window is short.
    QWidget* buildScrollArea(QWidget* central);

    QVBoxLayout* m_column = nullptr;
    QLabel* m_storeProblem = nullptr;
    AccountSection* m_account = nullptr;
    WidgetTogglesView* m_toggles = nullptr;
    SettingsView* m_settings = nullptr;
    bool m_wasOnScreen = false;
};
