#pragma once

#include <QByteArray>
#include <QString>

// The server's web pages as HTML text: one layout, one stylesheet, no inline
// script, and every user-supplied text escaped on its way in.
class HtmlPage
{
public:
    HtmlPage() = delete;

    static QString escape(const QString& text);
    // A whole page: `title` in the head and as the heading, `body` as it is (HTML).
    // `user` (escaped) and `csrf` add the signed-in bar with its sign-out button.
    static QByteArray render(const QString& title, const QString& body, const QString& user = {},
                             const QString& csrf = {});
    // A hidden form field.
    static QString hidden(const QString& name, const QString& value);
};
