#pragma once

#include "StoreBackups.h"

#include <QDialog>

class QListWidget;
class QPushButton;

// "Restore from backup…": the daily backups with their day and what each holds,
// newest first, or a store file chosen by hand. Accepting gives chosenPath(); the
// caller confirms and restores.
class RestoreDialog final : public QDialog
{
    Q_OBJECT

public:
    RestoreDialog(const QList<StoreBackups::Entry>& backups, QWidget* parent = nullptr);

    QString chosenPath() const { return m_chosen; }
    // The line a backup is listed with.
    static QString describe(const StoreBackups::Entry& entry);

private:
    void chooseFile();

    QListWidget* m_list = nullptr;
    QPushButton* m_restore = nullptr;
    QString m_chosen;
};
