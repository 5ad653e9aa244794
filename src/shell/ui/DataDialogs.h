#pragma once

#include <QObject>
#include <QPointer>

class AppServices;
class QWidget;

// The hub's File menu dialogs: export, import and restore from a backup. They ask
// and tell; the data transfer and the store do the work.
class DataDialogs final : public QObject
{
    Q_OBJECT

public:
    // Dialogs open over `window`.
    DataDialogs(AppServices& services, QWidget* window, QObject* parent = nullptr);

    // A file dialog, then export or (after asking how) import.
    void exportWithDialog();
    void importWithDialog();
    // Checks `path`, then asks how to import it; an error box when it cannot be.
    void offerImport(const QString& path);

    // The backups, then a confirmation.
    void restoreWithDialog();
    // Asks before restoring the store file at `path`; an error box when it cannot be.
    void offerRestore(const QString& path);

signals:
    // The user confirmed restoring the store file at `path`.
    void restoreChosen(const QString& path);

private:
    AppServices& m_services;
    QPointer<QWidget> m_window;
};
