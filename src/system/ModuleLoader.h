#pragma once

#include <QString>

class QObject;

// Finds and loads one of the app's own modules, the parts (sound, network) that
// are loaded when first needed rather than at start-up. They sit next to the app:
// <prefix>/bin/tidewell and <prefix>/<libdir>/tidewell/<name>.so, the same in
// the build tree; tests, which live elsewhere, name the folder in
// TIDEWELL_MODULE_DIR.
class ModuleLoader
{
public:
    ModuleLoader() = delete;

    // The module's root object, kept loaded for the rest of the process; null,
    // with the reason in `why`, when it is missing or does not load.
    static QObject* load(const QString& name, QString* why);
};
