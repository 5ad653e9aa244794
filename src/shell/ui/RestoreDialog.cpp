#include "RestoreDialog.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QPushButton>
#include <QVBoxLayout>

namespace {
QString counted(int n, const QString& one, const QString& many)
{
    return n < 0 ? QString() : QStringLiteral("%1 %2").arg(n).arg(n == 1 ? one : many);
}
} // namespace

RestoreDialog::RestoreDialog(const QList<StoreBackups::Entry>& backups, QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("restoreDialog"));
    setWindowTitle(QStringLiteral("Restore from backup"));
    auto* layout = new QVBoxLayout(this);
    auto* intro = new QLabel(
        backups.isEmpty()
            ? QStringLiteral("There are no daily backups yet. Tidewell writes one each day "
                             "once it has checked the store; you can also choose a store file.")
            : QStringLiteral("Choose the day to go back to. Tidewell restarts with that day's "
                             "data; the store as it is now is kept beside it."),
        this);
    intro->setWordWrap(true);
    intro->setTextFormat(Qt::PlainText);
    layout->addWidget(intro);

    m_list = new QListWidget(this);
    m_list->setObjectName(QStringLiteral("backupList"));
    m_list->setAccessibleName(QStringLiteral("Backups"));
    for (const StoreBackups::Entry& entry : backups) {
        auto* item = new QListWidgetItem(describe(entry), m_list);
        item->setData(Qt::UserRole, entry.path);
    }
    m_list->setVisible(!backups.isEmpty());
    layout->addWidget(m_list);

    auto* buttons = new QDialogButtonBox(this);
    QPushButton* file =
        buttons->addButton(QStringLiteral("Choose a File…"), QDialogButtonBox::ActionRole);
    file->setObjectName(QStringLiteral("chooseBackupFile"));
    m_restore = buttons->addButton(QStringLiteral("Restore…"), QDialogButtonBox::AcceptRole);
    m_restore->setObjectName(QStringLiteral("restoreButton"));
    m_restore->setEnabled(false);
    m_restore->setDefault(true);
    buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    connect(file, &QPushButton::clicked, this, &RestoreDialog::chooseFile);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    // Selection, not the current item: assistive technologies select rows.
    connect(m_list, &QListWidget::itemSelectionChanged, this, [this] {
        const QList<QListWidgetItem*> selected = m_list->selectedItems();
        m_chosen = selected.isEmpty() ? QString() : selected.first()->data(Qt::UserRole).toString();
        m_restore->setEnabled(!m_chosen.isEmpty());
    });
    connect(m_list, &QListWidget::itemActivated, this, [this] {
        if (!m_chosen.isEmpty())
            accept();
    });
    layout->addWidget(buttons);
    if (m_list->count() > 0)
        m_list->setCurrentRow(0);
    resize(480, 320);
}

QString RestoreDialog::describe(const StoreBackups::Entry& entry)
{
    const QString day =
        entry.day.isValid() ? QLocale().toString(entry.day, QLocale::LongFormat) : entry.path;
    if (entry.habits < 0)
        return day + QStringLiteral(" — cannot be read");
    return day + QStringLiteral(" — ") +
           QStringList{counted(entry.habits, QStringLiteral("habit"), QStringLiteral("habits")),
                       counted(entry.lists, QStringLiteral("list"), QStringLiteral("lists")),
                       counted(entry.tasks, QStringLiteral("task"), QStringLiteral("tasks")),
                       counted(entry.focusSessions, QStringLiteral("focus session"),
                               QStringLiteral("focus sessions"))}
               .join(QStringLiteral(", "));
}

void RestoreDialog::chooseFile()
{
    auto* dialog = new QFileDialog(this, QStringLiteral("Restore from a store file"), QString(),
                                   QStringLiteral("Tidewell store (*.sqlite)"));
    dialog->setObjectName(QStringLiteral("restoreFileDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFile);
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& path) {
        m_chosen = path;
        accept();
    });
    dialog->open();
}
