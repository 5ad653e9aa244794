#pragma once

#include <QDialog>

class QLineEdit;
class QPushButton;

// The small modal prompt that asks for a list name, for a new list or a rename.
// Parented to the widget that opens it, so the popup holding that widget stays
// open while it shows.
class ListNameDialog final : public QDialog
{
    Q_OBJECT

public:
    enum class Purpose { NewList, Rename };

    ListNameDialog(Purpose purpose, const QString& name, QWidget* parent);

    // The typed name with spaces and tabs trimmed from both ends.
    QString trimmedName() const;
    QLineEdit* field() const { return m_field; }

private:
    QLineEdit* m_field = nullptr;
};
