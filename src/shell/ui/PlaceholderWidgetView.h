#pragma once

#include <QWidget>

// Stands in for a widget this version cannot show: a hammer and a label.
class PlaceholderWidgetView final : public QWidget
{
    Q_OBJECT

public:
    explicit PlaceholderWidgetView(const QString& label, QWidget* parent = nullptr);
};
