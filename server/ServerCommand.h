#pragma once

#include <QStringList>

#include <cstdio>

// The command line of tidewell-server: `serve`, and the operator's commands for
// users, tokens and resource history. Returns the process's exit status.
class ServerCommand
{
public:
    // `arguments` without the program name.
    static int run(const QStringList& arguments);
    static QString usage();
};
