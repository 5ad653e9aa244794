#include "HtmlPage.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

namespace {
QHash<QString, QString> loadTemplates()
{
    QHash<QString, QString> templates;
    for (QDirIterator it(QStringLiteral(":/web/pages")); it.hasNext();) {
        QFile file(it.next());
        if (!file.open(QIODevice::ReadOnly))
            continue;
        QString text;
        for (const QString& line : QString::fromUtf8(file.readAll()).split(u'\n'))
            text += line.trimmed();
        templates.insert(QFileInfo(file.fileName()).completeBaseName(), text);
    }
    return templates;
}
} // namespace

QString HtmlPage::escape(const QString& text)
{
    return text.toHtmlEscaped().replace(u'\'', QStringLiteral("&#39;"));
}

QString HtmlPage::fill(const QString& name, const Values& values)
{
    // Read once, by whichever request thread comes first.
    static const QHash<QString, QString> templates = loadTemplates();
    const QString text = templates.value(name);
    Q_ASSERT_X(!text.isEmpty(), "HtmlPage::fill", qPrintable(name));
    QString out;
    out.reserve(text.size() + 256);
    for (qsizetype at = 0;;) {
        const qsizetype open = text.indexOf(u"{{", at);
        if (open < 0) {
            out += QStringView(text).sliced(at);
            return out;
        }
        out += QStringView(text).sliced(at, open - at);
        const bool raw = open + 2 < text.size() && text.at(open + 2) == u'{';
        const QLatin1StringView close = raw ? QLatin1StringView("}}}") : QLatin1StringView("}}");
        const qsizetype start = open + close.size();
        const qsizetype end = text.indexOf(close, start);
        if (end < 0) {
            out += QStringView(text).sliced(open);
            return out;
        }
        const QString value = values.value(text.sliced(start, end - start));
        out += raw ? value : escape(value);
        at = end + close.size();
    }
}

QByteArray HtmlPage::render(const QString& title, const QString& body, const QString& user,
                            const QString& csrf)
{
    const QString bar =
        user.isEmpty() ? QString()
                       : fill(QStringLiteral("signed-in-bar"),
                              {{QStringLiteral("user"), user}, {QStringLiteral("csrf"), csrf}});
    return (fill(QStringLiteral("layout"), {{QStringLiteral("title"), title},
                                            {QStringLiteral("bar"), bar},
                                            {QStringLiteral("body"), body}}) +
            u'\n')
        .toUtf8();
}
