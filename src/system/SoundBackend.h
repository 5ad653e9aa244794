#pragma once

#include "SoundEffect.h"

#include <QtPlugin>

#include <functional>
#include <memory>

class QUrl;

// Decodes and plays sounds. The implementation lives in a module loaded on the
// first sound, so that the audio stack costs nothing until a sound is needed.
class SoundBackend
{
public:
    virtual ~SoundBackend() = default;
    // Starts decoding `source` in the background. `failed` runs later, on the
    // caller's thread, when the file turns out not to be playable.
    virtual std::unique_ptr<SoundEffect> load(const QUrl& source, std::function<void()> failed) = 0;
};

#define SoundBackend_iid "com.brenlow.tidewell.SoundBackend/1"
Q_DECLARE_INTERFACE(SoundBackend, SoundBackend_iid)
