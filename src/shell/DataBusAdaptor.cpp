#include "DataBusAdaptor.h"

#include "DataTransfer.h"
#include "DesktopBus.h"

#include <QFileInfo>

DataBusAdaptor::DataBusAdaptor(QObject* parent, DataTransfer& transfer)
    : QDBusAbstractAdaptor(parent)
    , m_transfer(transfer)
{}

void DataBusAdaptor::Export(const QString& path, const QString& csvDirectory)
{
    // The caller's working folder is not ours: relative paths would land elsewhere.
    if (QFileInfo(path).isRelative() ||
        (!csvDirectory.isEmpty() && QFileInfo(csvDirectory).isRelative())) {
        DesktopBus::refuse(this, DesktopBus::Error::InvalidArgs,
                           QStringLiteral("paths must be absolute"));
        return;
    }
    QString error;
    if (!m_transfer.exportTo(path, csvDirectory, &error))
        DesktopBus::refuse(this, DesktopBus::Error::Failed, error);
}

QStringList DataBusAdaptor::Import(const QString& path, const QString& mode)
{
    if (mode != u"replace" && mode != u"merge") {
        DesktopBus::refuse(this, DesktopBus::Error::InvalidArgs,
                           QStringLiteral("the mode must be \"replace\" or \"merge\""));
        return {};
    }
    if (QFileInfo(path).isRelative()) {
        DesktopBus::refuse(this, DesktopBus::Error::InvalidArgs,
                           QStringLiteral("paths must be absolute"));
        return {};
    }
    QString error;
    const auto document = DataTransfer::readFile(path, &error);
    QStringList summary;
    if (!document || !m_transfer.importDocument(*document,
                                                mode == u"replace" ? ExportDocument::Mode::Replace
                                                                   : ExportDocument::Mode::Merge,
                                                &summary, &error)) {
        DesktopBus::refuse(this, DesktopBus::Error::Failed, error);
        return {};
    }
    return summary;
}

void DataBusAdaptor::ShowHistory()
{
    emit static_cast<DesktopBus*>(parent())->historyRequested();
}

void DataBusAdaptor::RestoreBackup(const QString& path)
{
    if (QFileInfo(path).isRelative()) {
        DesktopBus::refuse(this, DesktopBus::Error::InvalidArgs,
                           QStringLiteral("paths must be absolute"));
        return;
    }
    QString error;
    if (!m_transfer.requestRestore(path, &error))
        DesktopBus::refuse(this, DesktopBus::Error::Failed, error);
}
