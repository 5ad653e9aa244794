#pragma once

#include "ExportDocument.h"

#include <QDialog>

class QLabel;
class QRadioButton;

// Asks how to import a checked document — "Replace all data" or "Merge" — showing
// what each would change, per kind of record, before anything is written.
class ImportDialog final : public QDialog
{
    Q_OBJECT

public:
    ImportDialog(const QString& fileName, ExportDocument::Plan replace, ExportDocument::Plan merge,
                 QWidget* parent = nullptr);

    ExportDocument::Mode mode() const;

private:
    void showChanges();

    ExportDocument::Plan m_replace;
    ExportDocument::Plan m_merge;
    QRadioButton* m_replaceButton = nullptr;
    QRadioButton* m_mergeButton = nullptr;
    QLabel* m_changes = nullptr;
};
