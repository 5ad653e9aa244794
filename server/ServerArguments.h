#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

// tidewell-server's command line: positional words and "--name value" options.
// Settings not given fall back to the environment (TIDEWELL_SERVER_PUBLIC_URL for
// --public-url, …), which is how /etc/default/tidewell-server configures the unit.
class ServerArguments
{
public:
    static ServerArguments parse(const QStringList& arguments);
    // The environment variable that stands for `option`.
    static QString environmentName(const QString& option);

    QStringList positional;
    QMap<QString, QStringList> options; // "--name" -> every value given ("" for flags)
    QString problem;                    // why the command line cannot be read

    bool has(const QString& name) const { return options.contains(name); }
    // The last value given.
    QString value(const QString& name, const QString& fallback = {}) const
    {
        const QStringList values = options.value(name);
        return values.isEmpty() ? fallback : values.last();
    }
    // A number of at least `minimum` from option `name` into `target` (left alone
    // when the option is not given); false when it is not one.
    bool positive(const QString& name, qint64 minimum, qint64* target) const;

private:
    void readEnvironment();
};
