#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

// The server's web pages, from the templates built in from web/pages: one
// layout, one stylesheet, no inline script, and every value escaped unless it
// is HTML made from another template.
class HtmlPage
{
public:
    HtmlPage() = delete;

    using Values = QHash<QString, QString>;

    static QString escape(const QString& text);
    // The template `name` (web/pages/<name>.html) with each {{key}} replaced by its
    // value escaped and each {{{key}}} by its value as it is. The templates' lines
    // are joined without their breaks and indentation, so they break only between
    // tags.
    static QString fill(const QString& name, const Values& values = {});
    // A whole page: `title` in the head and as the heading, `body` as it is (HTML).
    // `user` and `csrf` add the signed-in bar with its sign-out button.
    static QByteArray render(const QString& title, const QString& body, const QString& user = {},
                             const QString& csrf = {});
};
