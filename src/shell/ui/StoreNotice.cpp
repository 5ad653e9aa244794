#include "StoreNotice.h"

#include "ModelContext.h"

#include <QLabel>
#include <QPalette>
#include <QVBoxLayout>

StoreNotice::StoreNotice(ModelContext& context, QWidget* view, QWidget* parent)
    : QWidget(parent)
    , m_view(view)
    , m_line(new QLabel(this))
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    m_line->setObjectName(QStringLiteral("storeNotice"));
    m_line->setTextFormat(Qt::PlainText);
    m_line->setWordWrap(true);
    m_line->setContentsMargins(8, 4, 8, 4);
    QPalette colors = m_line->palette();
    colors.setColor(QPalette::WindowText, Qt::white);
    colors.setColor(QPalette::Window, QColor(0xC6, 0x28, 0x28));
    m_line->setPalette(colors);
    m_line->setAutoFillBackground(true);
    m_line->hide();
    layout->addWidget(m_line);
    layout->addWidget(view, 1);
    connect(&context, &ModelContext::damaged, this, &StoreNotice::show);
    if (!context.damage().isEmpty())
        show(context.damage());
}

QString StoreNotice::text() const
{
    return m_line->isHidden() ? QString() : m_line->text();
}

void StoreNotice::show(const QString&)
{
    const QString text = QStringLiteral("The store is damaged: changes are not saved. In "
                                        "Tidewell, choose File ▸ Restore from backup…");
    m_line->setText(text);
    m_line->setAccessibleName(text);
    m_line->show();
}
