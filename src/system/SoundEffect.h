#pragma once

// One decoded interface sound, kept to be played again and again.
class SoundEffect
{
public:
    virtual ~SoundEffect() = default;
    // Starts from the beginning, also when the sound is still playing.
    virtual void play() = 0;
    // Still being decoded in the background.
    virtual bool isLoading() const = 0;
};
