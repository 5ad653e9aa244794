#pragma once

#include <QWidget>

class ModelContext;
class QLabel;

// A widget's view with a line above it that shows only while the store is damaged:
// whoever uses Tidewell through a popup or a panel alone learns that changes are
// no longer saved, and where the way out is.
class StoreNotice final : public QWidget
{
    Q_OBJECT

public:
    StoreNotice(ModelContext& context, QWidget* view, QWidget* parent = nullptr);

    QWidget* view() const { return m_view; }
    QString text() const;

private:
    void show(const QString& problem);

    QWidget* m_view;
    QLabel* m_line;
};
