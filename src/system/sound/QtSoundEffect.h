#pragma once

#include "SoundEffect.h"

#include <QSoundEffect>

#include <functional>

class QtSoundEffect final : public SoundEffect
{
public:
    QtSoundEffect(const QUrl& source, std::function<void()> failed);

    void play() override;
    bool isLoading() const override;

private:
    QSoundEffect m_effect;
};
