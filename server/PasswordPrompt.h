#pragma once

#include <QString>

#include <optional>

// Passwords from standard input: asked without echo on a terminal, read as a
// line from a pipe (for scripts).
class PasswordPrompt
{
public:
    // One line; `prompt` is shown only on a terminal.
    static QString read(const QString& prompt);
    // A new password for `user`, asked twice on a terminal; nothing when the two
    // differ.
    static std::optional<QString> newPassword(const QString& user);
};
