#include "QtSoundEffect.h"

QtSoundEffect::QtSoundEffect(const QUrl& source, std::function<void()> failed)
{
    // Queued: the owner may destroy this effect in `failed`, which must not
    // happen inside the effect's own signal. Destroying it drops the call.
    QObject::connect(
        &m_effect, &QSoundEffect::statusChanged, &m_effect,
        [this, failed = std::move(failed)] {
            if (m_effect.status() == QSoundEffect::Error)
                failed();
        },
        Qt::QueuedConnection);
    m_effect.setSource(source);
}

void QtSoundEffect::play()
{
    m_effect.stop();
    m_effect.play();
}

bool QtSoundEffect::isLoading() const
{
    return m_effect.status() == QSoundEffect::Loading;
}
