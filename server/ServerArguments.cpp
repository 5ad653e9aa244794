#include "ServerArguments.h"

#include <QRegularExpression>

namespace {
// Options that take a value and may also come from the environment.
const QStringList settings{QStringLiteral("--database"),
                           QStringLiteral("--database-password-file"),
                           QStringLiteral("--listen"),
                           QStringLiteral("--tls-cert"),
                           QStringLiteral("--tls-key"),
                           QStringLiteral("--max-body"),
                           QStringLiteral("--schemes"),
                           QStringLiteral("--max-connections"),
                           QStringLiteral("--max-connections-per-address"),
                           QStringLiteral("--public-url"),
                           QStringLiteral("--trusted-proxy"),
                           QStringLiteral("--threads")};
const QStringList withValue =
    settings + QStringList{QStringLiteral("--label"), QStringLiteral("--version")};
const QStringList fromEnvironment = settings + QStringList{QStringLiteral("--access-log")};
} // namespace

QString ServerArguments::environmentName(const QString& option)
{
    return u"TIDEWELL_SERVER_" + option.mid(2).toUpper().replace(u'-', u'_');
}

ServerArguments ServerArguments::parse(const QStringList& arguments)
{
    ServerArguments out;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& a = arguments.at(i);
        if (!a.startsWith(u"--")) {
            out.positional.append(a);
            continue;
        }
        QString name = a, value;
        if (const qsizetype eq = a.indexOf(u'='); eq > 0) {
            name = a.left(eq);
            value = a.mid(eq + 1);
        } else if (withValue.contains(a)) {
            if (i + 1 >= arguments.size()) {
                out.problem = a + u" needs a value";
                return out;
            }
            value = arguments.at(++i);
        }
        out.options[name].append(value);
    }
    out.readEnvironment();
    return out;
}

void ServerArguments::readEnvironment()
{
    for (const QString& option : fromEnvironment) {
        const QString value = qEnvironmentVariable(qPrintable(environmentName(option)));
        if (has(option) || value.isEmpty())
            continue;
        if (option == u"--access-log") {
            if (value == u"1" || value == u"yes" || value == u"true")
                options[option].append(QString());
        } else if (option == u"--trusted-proxy") {
            options[option] =
                value.split(QRegularExpression(QStringLiteral("[,\\s]+")), Qt::SkipEmptyParts);
        } else {
            options[option].append(value);
        }
    }
}

bool ServerArguments::positive(const QString& name, qint64 minimum, qint64* target) const
{
    if (!has(name))
        return true;
    bool ok = false;
    const qint64 value = this->value(name).toLongLong(&ok);
    if (!ok || value < minimum)
        return false;
    *target = value;
    return true;
}
