#include "PomodoroSettingsSheet.h"

#include "LimitedSpinBox.h"
#include "PomodoroService.h"
#include "Theme.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace {
// One number row: label, field with stepper arrows, unit.
LimitedSpinBox* addRow(QGridLayout* grid, const QString& label, const QString& unit, int min,
                       int max, qint64 value, const QString& name, QWidget* parent)
{
    const int row = grid->rowCount();
    auto* text = new QLabel(label, parent);
    text->setFixedWidth(150);
    // The stored value shows as it is (the web may set 120 minutes); only what is
    // typed here keeps to the range.
    auto* field = new LimitedSpinBox(min, max, parent);
    field->setObjectName(name);
    field->setLoadedValue(value);
    field->setAlignment(Qt::AlignRight);
    field->setFixedWidth(64 + 24);
    field->setAccessibleName(label);
    text->setBuddy(field);
    auto* units = new QLabel(unit, parent);
    units->setFixedWidth(80);
    Theme::makeSecondary(units);
    grid->addWidget(text, row, 0);
    grid->addWidget(field, row, 1);
    grid->addWidget(units, row, 2);
    return field;
}
} // namespace

PomodoroSettingsSheet::PomodoroSettingsSheet(PomodoroService& timer, QWidget* parent)
    : QDialog(parent)
    , m_timer(timer)
{
    setObjectName(QStringLiteral("pomodoroSettings"));
    setWindowTitle(QStringLiteral("Pomodoro Settings"));
    setModal(true);
    setAttribute(Qt::WA_DeleteOnClose);
    setFixedWidth(380);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(20, 20, 20, 20);
    column->setSpacing(16);
    auto* title = new QLabel(QStringLiteral("Pomodoro Settings"), this);
    title->setFont(Theme::font(Theme::Font::Headline));
    column->addWidget(title);

    auto* grid = new QGridLayout;
    grid->setVerticalSpacing(10);
    m_pomodoro = addRow(grid, QStringLiteral("Focus duration"), QStringLiteral("min"), 1, 90,
                        timer.pomodoroDuration(), QStringLiteral("focusDuration"), this);
    m_shortBreak = addRow(grid, QStringLiteral("Short break"), QStringLiteral("min"), 1, 30,
                          timer.shortBreakDuration(), QStringLiteral("shortBreak"), this);
    m_longBreak = addRow(grid, QStringLiteral("Long break"), QStringLiteral("min"), 1, 60,
                         timer.longBreakDuration(), QStringLiteral("longBreak"), this);
    m_interval = addRow(grid, QStringLiteral("Long break every"), QStringLiteral("session(s)"), 2,
                        10, timer.pomodorosForLongBreak(), QStringLiteral("longBreakEvery"), this);
    column->addLayout(grid);
    m_autoStart = new QCheckBox(QStringLiteral("Auto-start next session"), this);
    m_autoStart->setObjectName(QStringLiteral("autoStartNext"));
    m_autoStart->setChecked(timer.autoStart());
    column->addWidget(m_autoStart);

    auto* note =
        new QLabel(QStringLiteral("Saving resets today's counts and the current timer."), this);
    note->setFont(Theme::font(Theme::Font::Caption));
    note->setWordWrap(true);
    column->addWidget(note);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    auto* cancel = new QPushButton(QStringLiteral("Cancel"), this);
    cancel->setObjectName(QStringLiteral("cancelButton"));
    auto* saveButton = new QPushButton(QStringLiteral("Save"), this);
    saveButton->setObjectName(QStringLiteral("saveButton"));
    saveButton->setDefault(true);
    buttons->addWidget(cancel);
    buttons->addWidget(saveButton);
    column->addLayout(buttons);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(saveButton, &QPushButton::clicked, this, &PomodoroSettingsSheet::save);
}

void PomodoroSettingsSheet::save()
{
    // A value typed but not yet committed by the field still counts.
    for (LimitedSpinBox* field : {m_pomodoro, m_shortBreak, m_longBreak, m_interval})
        field->interpretText();
    const qint64 pomodoro = m_pomodoro->currentValue(), shortBreak = m_shortBreak->currentValue(),
                 longBreak = m_longBreak->currentValue(), interval = m_interval->currentValue();
    const bool autoStart = m_autoStart->isChecked();
    m_timer.updateSettings(pomodoro, shortBreak, longBreak, interval, autoStart);
    accept();
}
