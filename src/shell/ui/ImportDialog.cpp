#include "ImportDialog.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

ImportDialog::ImportDialog(const QString& fileName, ExportDocument::Plan replace,
                           ExportDocument::Plan merge, QWidget* parent)
    : QDialog(parent)
    , m_replace(std::move(replace))
    , m_merge(std::move(merge))
{
    setObjectName(QStringLiteral("importDialog"));
    setWindowTitle(QStringLiteral("Import"));
    auto* layout = new QVBoxLayout(this);
    auto* question = new QLabel(u"Import \u201c" + fileName + u"\u201d?", this);
    question->setTextFormat(Qt::PlainText);
    layout->addWidget(question);

    m_replaceButton = new QRadioButton(QStringLiteral("Replace all data"), this);
    m_replaceButton->setObjectName(QStringLiteral("replaceAllData"));
    m_replaceButton->setToolTip(QStringLiteral("Everything here is replaced by the file"));
    m_mergeButton = new QRadioButton(QStringLiteral("Merge"), this);
    m_mergeButton->setObjectName(QStringLiteral("merge"));
    m_mergeButton->setToolTip(QStringLiteral(
        "The file's records join these, matched by id; of two records of the same habit and "
        "day, the larger count stays"));
    m_mergeButton->setChecked(true); // the choice that loses nothing
    layout->addWidget(m_replaceButton);
    layout->addWidget(m_mergeButton);

    m_changes = new QLabel(this);
    m_changes->setObjectName(QStringLiteral("importChanges"));
    m_changes->setTextFormat(Qt::PlainText);
    m_changes->setWordWrap(true);
    m_changes->setContentsMargins(0, 8, 0, 8);
    layout->addWidget(m_changes);

    auto* buttons = new QDialogButtonBox(this);
    QPushButton* import =
        buttons->addButton(QStringLiteral("Import"), QDialogButtonBox::AcceptRole);
    import->setObjectName(QStringLiteral("importButton"));
    buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    import->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);

    connect(m_replaceButton, &QRadioButton::toggled, this, &ImportDialog::showChanges);
    showChanges();
}

ExportDocument::Mode ImportDialog::mode() const
{
    return m_replaceButton->isChecked() ? ExportDocument::Mode::Replace
                                        : ExportDocument::Mode::Merge;
}

void ImportDialog::showChanges()
{
    const ExportDocument::Plan& plan =
        mode() == ExportDocument::Mode::Replace ? m_replace : m_merge;
    const QStringList lines = plan.summary();
    const QString text = lines.isEmpty() ? QStringLiteral("Nothing would change.")
                                         : u"What changes:\n" + lines.join(u'\n');
    m_changes->setText(text);
    m_changes->setAccessibleName(text);
}
