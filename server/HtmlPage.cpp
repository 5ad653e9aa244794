#include "HtmlPage.h"

QString HtmlPage::escape(const QString& text)
{
    return text.toHtmlEscaped().replace(u'\'', QStringLiteral("&#39;"));
}

QString HtmlPage::hidden(const QString& name, const QString& value)
{
    return u"<input type=\"hidden\" name=\"" + escape(name) + u"\" value=\"" + escape(value) +
           u"\">";
}

QByteArray HtmlPage::render(const QString& title, const QString& body, const QString& user,
                            const QString& csrf)
{
    QString bar;
    if (!user.isEmpty())
        bar = u"<header><span>Signed in as <strong>" + escape(user) +
              u"</strong></span><nav><a href=\"/en/app/tokens\">Tokens</a>"
              u"<form method=\"post\" action=\"/en/app/signout\">" +
              hidden(QStringLiteral("csrf"), csrf) +
              u"<button type=\"submit\" class=\"link\">Sign out</button></form></nav></header>";
    const QString page = u"<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
                         u"<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
                         u"<title>" +
                         escape(title) +
                         u" – Tidewell</title><link rel=\"stylesheet\" href=\"/static/style.css\">"
                         u"<script src=\"/static/copy.js\" defer></script></head><body>" +
                         bar + u"<main><h1>" + escape(title) + u"</h1>" + body +
                         u"</main></body></html>\n";
    return page.toUtf8();
}
