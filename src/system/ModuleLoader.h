#pragma once

#include <QString>

class QObject;

// Finds and loads one of the app's own modules, the parts (sound, network) that
// are loaded when first needed rather than at start-up. They sit next to the app:
// <prefix>/bin/tidewell and <prefix>/<libdir>/tidewell/<name>.so, the same in
// the build tree. Only the code that builds the services chooses the folder;
// nothing outside the process can point it elsewhere: the network module holds
// the user's token.
class ModuleLoader
{
public:
    // The modules installed beside the running app.
    ModuleLoader();
    // The modules in `directory` (tests, which live away from the app).
    explicit ModuleLoader(QString directory);

    // The module's root object, kept loaded for the rest of the process; null,
    // with the reason in `why`, when it is missing or does not load.
    QObject* load(const QString& name, QString* why) const;
    QString directory() const { return m_directory; }

private:
    QString m_directory;
};
