#include "DataBusAdaptor.h"

#include "DataTransfer.h"
#include "DesktopBus.h"

#include <QFileInfo>

namespace {
const QString failed = QStringLiteral("com.brenlow.tidewell.Error.Failed");
const QString invalid = QStringLiteral("com.brenlow.tidewell.Error.InvalidArgs");
} // namespace

DataBusAdaptor::DataBusAdaptor(QObject* parent, DataTransfer& transfer)
    : QDBusAbstractAdaptor(parent)
    , m_transfer(transfer)
{}

void DataBusAdaptor::refuse(const QString& error, const QString& message) const
{
    static_cast<DesktopBus*>(parent())->sendErrorReply(error, message);
}

void DataBusAdaptor::Export(const QString& path, const QString& csvDirectory)
{
    // The caller's working folder is not ours: relative paths would land elsewhere.
    if (QFileInfo(path).isRelative() ||
        (!csvDirectory.isEmpty() && QFileInfo(csvDirectory).isRelative())) {
        refuse(invalid, QStringLiteral("paths must be absolute"));
        return;
    }
    QString error;
    if (!m_transfer.exportTo(path, csvDirectory, &error))
        refuse(failed, error);
}

QStringList DataBusAdaptor::Import(const QString& path, const QString& mode)
{
    if (mode != u"replace" && mode != u"merge") {
        refuse(invalid, QStringLiteral("the mode must be \"replace\" or \"merge\""));
        return {};
    }
    if (QFileInfo(path).isRelative()) {
        refuse(invalid, QStringLiteral("paths must be absolute"));
        return {};
    }
    QString error;
    const auto document = DataTransfer::readFile(path, &error);
    QStringList summary;
    if (!document || !m_transfer.importDocument(*document,
                                                mode == u"replace" ? ExportDocument::Mode::Replace
                                                                   : ExportDocument::Mode::Merge,
                                                &summary, &error)) {
        refuse(failed, error);
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
        refuse(invalid, QStringLiteral("paths must be absolute"));
        return;
    }
    QString error;
    if (!m_transfer.requestRestore(path, &error))
        refuse(failed, error);
}
