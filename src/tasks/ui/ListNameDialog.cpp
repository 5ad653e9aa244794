#include "ListNameDialog.h"

#include "Blanks.h"
#include "TasksService.h"
#include "Theme.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace {
QPushButton* makeButton(const QString& text, const QString& objectName, QWidget* parent)
{
    auto* button = new QPushButton(text, parent);
    button->setObjectName(objectName);
    button->setAccessibleName(text);
    return button;
}
} // namespace

ListNameDialog::ListNameDialog(Purpose purpose, const QString& name, QWidget* parent)
    : QDialog(parent)
{
    const bool rename = purpose == Purpose::Rename;
    const QString title = rename ? tr("Rename list") : tr("New task list");
    setObjectName(rename ? QStringLiteral("renameListDialog") : QStringLiteral("newListPrompt"));
    setAccessibleName(title);
    setWindowTitle(title);
    setWindowModality(Qt::WindowModal);
    setAttribute(Qt::WA_DeleteOnClose);

    auto* message = new QLabel(title, this);
    message->setObjectName(QStringLiteral("dialogMessage"));
    message->setFont(Theme::font(Theme::Font::Headline));

    m_field = new QLineEdit(name, this);
    m_field->setObjectName(QStringLiteral("listNameField"));
    m_field->setAccessibleName(rename ? tr("List name") : tr("Name"));
    if (rename)
        m_field->setFixedSize(220, 22);
    else
        m_field->setPlaceholderText(tr("Name"));

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    QPushButton* accept = nullptr;
    if (rename) {
        accept = makeButton(tr("Save"), QStringLiteral("saveButton"), this);
        buttons->addWidget(accept);
        buttons->addWidget(makeButton(tr("Cancel"), QStringLiteral("cancelButton"), this));
    } else {
        buttons->addWidget(makeButton(tr("Cancel"), QStringLiteral("cancelButton"), this));
        accept = makeButton(tr("Create"), QStringLiteral("createButton"), this);
        buttons->addWidget(accept);
    }
    accept->setDefault(true);
    connect(accept, &QPushButton::clicked, this, &QDialog::accept);
    connect(findChild<QPushButton*>(QStringLiteral("cancelButton")), &QPushButton::clicked, this,
            &QDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(message);
    layout->addWidget(m_field);
    layout->addLayout(buttons);
}

QString ListNameDialog::trimmedName() const
{
    return Blanks::trimmed(m_field->text());
}
