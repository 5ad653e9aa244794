#pragma once

#include <QString>

class QObject;

// Finds and loads one of the app's own modules, the parts (sound, network) that
// are loaded when first needed rather than at start-up. They sit next to the app:
// <prefix>/bin/tidewell and <prefix>/<libdir>/tidewell/<name>.so, the same in
// the build tree. Nothing outside the process can point it elsewhere: the network
// module holds the user's token.
class ModuleLoader
{
public:
    ModuleLoader() = delete;

    // The module's root object, kept loaded for the rest of the process; null,
    // with the reason in `why`, when it is missing or does not load.
    static QObject* load(const QString& name, QString* why);
    // Tests, which live away from the app, name the modules' folder here.
    static void setSearchDirectory(const QString& dir);
};
