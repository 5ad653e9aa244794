#include "DataDialogs.h"

#include "AppServices.h"
#include "Clock.h"
#include "DataStore.h"
#include "DataTransfer.h"
#include "ImportDialog.h"
#include "ModelContext.h"
#include "RestoreDialog.h"
#include "StoreBackups.h"
#include "StoreRestore.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>

namespace {
void tell(QWidget* parent, QMessageBox::Icon icon, const QString& title, const QString& detail)
{
    auto* box = new QMessageBox(icon, title, title, QMessageBox::Ok, parent);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setInformativeText(detail);
    box->open();
}
} // namespace

DataDialogs::DataDialogs(AppServices& services, QWidget* window, QObject* parent)
    : QObject(parent)
    , m_services(services)
    , m_window(window)
{}

void DataDialogs::exportWithDialog()
{
    const QString name =
        QStringLiteral("tidewell-%1.json")
            .arg(m_services.clock().now().toLocalTime().date().toString(Qt::ISODate));
    auto* dialog = new QFileDialog(m_window, QStringLiteral("Export"), name,
                                   QStringLiteral("Tidewell export (*.json)"));
    dialog->setObjectName(QStringLiteral("exportDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setDefaultSuffix(QStringLiteral("json"));
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& path) {
        QString error;
        if (!m_services.transfer().exportTo(path, {}, &error))
            tell(m_window, QMessageBox::Warning, QStringLiteral("Export failed"), error);
    });
    dialog->open();
}

void DataDialogs::importWithDialog()
{
    auto* dialog = new QFileDialog(m_window, QStringLiteral("Import"), QString(),
                                   QStringLiteral("Tidewell export (*.json)"));
    dialog->setObjectName(QStringLiteral("importFileDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFile);
    connect(dialog, &QFileDialog::fileSelected, this, &DataDialogs::offerImport);
    dialog->open();
}

void DataDialogs::offerImport(const QString& path)
{
    QString error;
    const std::optional<ExportDocument> document = DataTransfer::readFile(path, &error);
    if (!document) {
        tell(m_window, QMessageBox::Warning, QStringLiteral("The file cannot be imported"), error);
        return;
    }
    ModelContext& context = m_services.store().mainContext();
    auto* ask = new ImportDialog(QFileInfo(path).fileName(),
                                 document->plan(context, ExportDocument::Mode::Replace),
                                 document->plan(context, ExportDocument::Mode::Merge), m_window);
    ask->setAttribute(Qt::WA_DeleteOnClose);
    connect(ask, &QDialog::accepted, this, [this, ask, document] {
        QString why;
        QStringList summary;
        if (m_services.transfer().importDocument(*document, ask->mode(), &summary, &why))
            tell(m_window, QMessageBox::Information, QStringLiteral("Import complete"),
                 summary.join(u'\n'));
        else
            tell(m_window, QMessageBox::Warning, QStringLiteral("Import failed"), why);
    });
    ask->open();
}

void DataDialogs::restoreWithDialog()
{
    const StoreBackups backups(StoreBackups::folderFor(m_services.store().path()));
    auto* dialog = new RestoreDialog(backups.list(), m_window);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QDialog::accepted, this,
            [this, dialog] { offerRestore(dialog->chosenPath()); });
    dialog->open();
}

void DataDialogs::offerRestore(const QString& path)
{
    QString error;
    if (!StoreRestore::check(path, &error)) {
        tell(m_window, QMessageBox::Warning, QStringLiteral("This file cannot be restored"), error);
        return;
    }
    const StoreBackups::Entry entry = StoreBackups::describe(path);
    const QString title =
        QStringLiteral("Restore %1?")
            .arg(entry.day.isValid()
                     ? u"the backup of " + QLocale().toString(entry.day, QLocale::LongFormat)
                     : QFileInfo(path).fileName());
    auto* box = new QMessageBox(QMessageBox::Question, QStringLiteral("Restore from backup"), title,
                                QMessageBox::NoButton, m_window);
    box->setObjectName(QStringLiteral("restoreConfirmation"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setInformativeText(
        RestoreDialog::describe(entry) +
        QStringLiteral("\n\nTidewell restarts with this data. The store as it is now is kept as "
                       "a file beside it, not deleted."));
    QPushButton* restore = box->addButton(QStringLiteral("Restore"), QMessageBox::AcceptRole);
    restore->setObjectName(QStringLiteral("confirmRestore"));
    QPushButton* cancel = box->addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    box->setDefaultButton(cancel);
    box->setEscapeButton(cancel);
    connect(box, &QMessageBox::buttonClicked, this, [this, restore, path](QAbstractButton* b) {
        if (b == restore)
            emit restoreChosen(path);
    });
    box->open();
}
