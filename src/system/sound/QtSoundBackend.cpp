#include "QtSoundBackend.h"

#include "QtSoundEffect.h"

std::unique_ptr<SoundEffect> QtSoundBackend::load(const QUrl& source, std::function<void()> failed)
{
    return std::make_unique<QtSoundEffect>(source, std::move(failed));
}
