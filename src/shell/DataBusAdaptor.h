#pragma once

#include <QDBusAbstractAdaptor>
#include <QStringList>

class DataTransfer;

// com.brenlow.tidewell.Data: export and import through the running Tidewell (so its
// widgets show an import at once and nothing writes the store under its feet), and
// the history window.
class DataBusAdaptor final : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.brenlow.tidewell.Data")

public:
    DataBusAdaptor(QObject* parent, DataTransfer& transfer);

public slots:
    // `path` and `csvDirectory` are absolute; an empty `csvDirectory` writes no CSV.
    void Export(const QString& path, const QString& csvDirectory);
    // `mode` is "replace" or "merge"; returns one line per kind that changed.
    QStringList Import(const QString& path, const QString& mode);
    void ShowHistory();
    // Restores the store file at `path` (absolute); Tidewell restarts with it.
    void RestoreBackup(const QString& path);

private:
    DataTransfer& m_transfer;
};
