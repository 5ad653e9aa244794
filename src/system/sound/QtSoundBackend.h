#pragma once

#include "SoundBackend.h"

#include <QObject>

// Sounds through Qt Multimedia, built as a module of its own.
class QtSoundBackend final : public QObject, public SoundBackend
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID SoundBackend_iid)
    Q_INTERFACES(SoundBackend)

public:
    std::unique_ptr<SoundEffect> load(const QUrl& source, std::function<void()> failed) override;
};
