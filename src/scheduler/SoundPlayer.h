#pragma once

#include <string>
#include <vector>

namespace snipwren {
/// Plays the notification sound where the notification service plays none. Needs SIGCHLD ignored, so that players that
/// have ended leave no zombies.
class SoundPlayer {
public:
    virtual ~SoundPlayer() = default;
    virtual void playAlarm() = 0;
};

/// Starts the first player that is installed; none is no error.
class ProgramSoundPlayer final : public SoundPlayer {
public:
    void playAlarm() override;
};
} // namespace snipwren
