#include "HabitEditorWindowContent.h"

#include "HabitEditorSheet.h"

#include <QVBoxLayout>

HabitEditorWindowContent::HabitEditorWindowContent(HabitsService& habits, ModelContext& context,
                                                   Habit* existing, QWidget* parent)
    : QWidget(parent)
    , m_sheet(new HabitEditorSheet(habits, context, existing, this))
{
    setObjectName(QStringLiteral("habitEditorWindow"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_sheet);
    connect(m_sheet, &HabitEditorSheet::dismissed, this, &QWidget::close);
}
