#pragma once

#include <QPointer>
#include <QStringList>
#include <QWidget>

#include "Habit.h"
class QLabel;
class QLayout;
class QLineEdit;
class QPushButton;
class LimitedSpinBox;
class QToolButton;
class HabitsService;
class ModelContext;

// The habit form: icon (one emoji), colour, name and daily goal, with Create or
// Save, Cancel, and Delete for an existing habit. Only those buttons write.
class HabitEditorSheet final : public QWidget
{
    Q_OBJECT

public:
    static const QStringList& colorPalette();
    static const QStringList& quickIconPalette();
    static constexpr int MinGoal = 1;
    static constexpr int MaxGoal = 50;

    HabitEditorSheet(HabitsService& habits, ModelContext& context, Habit* existing,
                     QWidget* parent = nullptr);

    QString icon() const { return m_icon; }
    QString colorHex() const { return m_colorHex; }
    qint64 maxValue() const;
    // The first whole grapheme cluster of `text` (a flag or a joined emoji stays whole).
    static QString firstCharacter(const QString& text);

    // Creates or updates the habit; does nothing while the trimmed name is empty, or
    // once the habit being edited has been deleted elsewhere.
    void commit();
    void deleteExisting();

signals:
    void dismissed();

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    QLayout* buildIconSection();
    QLayout* buildDetailsSection(); // colour, name and goal
    QLayout* buildButtons();
    // Keeps the icon field to one character and marks the matching choice.
    void iconTyped(const QString& text);
    void setIcon(const QString& icon);
    void setColor(const QString& hex);
    void updateSaveEnabled();
    QString trimmedName() const;

    HabitsService& m_habits;
    ModelContext& m_context;
    QPointer<Habit> m_existing;
    bool m_editing = false; // opened on an existing habit (which may since have gone)
    QString m_icon = QStringLiteral("💧");
    QString m_colorHex = QStringLiteral("#3B82F6");
    QLineEdit* m_iconField;
    QLineEdit* m_name;
    LimitedSpinBox* m_goal;
    QLabel* m_gone = nullptr;
    QPushButton* m_save;
    QList<QToolButton*> m_iconButtons;
    QList<QToolButton*> m_colorButtons;
};
