#pragma once

#include <QStringList>
#include <QTextStream>

// `tidewell export FILE.json [--csv DIR]` and `tidewell import --replace|--merge
// FILE.json`. With Tidewell running they go through it over the session bus, so its
// widgets show an import at once; otherwise they open the store themselves.
class DataCommand
{
public:
    enum Exit { Ok = 0, Failed = 1, Usage = 2, Refused = 3 };

    static bool handles(const QStringList& args);
    static int run(const QStringList& args, QTextStream& out, QTextStream& err);
};
