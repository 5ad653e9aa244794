#include "PasswordPrompt.h"

#include <QTextStream>

#include <cstdio>
#include <termios.h>
#include <unistd.h>

QString PasswordPrompt::read(const QString& prompt)
{
    const bool terminal = ::isatty(STDIN_FILENO);
    termios saved{};
    if (terminal) {
        std::fprintf(stderr, "%s", prompt.toLocal8Bit().constData());
        std::fflush(stderr);
        ::tcgetattr(STDIN_FILENO, &saved);
        termios quiet = saved;
        quiet.c_lflag &= ~tcflag_t(ECHO);
        ::tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
    }
    QTextStream in(stdin);
    const QString line = in.readLine();
    if (terminal) {
        ::tcsetattr(STDIN_FILENO, TCSANOW, &saved);
        std::fprintf(stderr, "\n");
    }
    return line;
}

std::optional<QString> PasswordPrompt::newPassword(const QString& user)
{
    const QString first = read(u"Password for " + user + u": ");
    if (::isatty(STDIN_FILENO) && read(QStringLiteral("Again: ")) != first)
        return std::nullopt;
    return first;
}
