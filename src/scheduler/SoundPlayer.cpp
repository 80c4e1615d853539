#include "scheduler/SoundPlayer.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

extern char** environ;

namespace snipwren {
namespace {
constexpr const char* soundName = "alarm-clock-elapsed";
constexpr const char* soundFile = "/usr/share/sounds/freedesktop/stereo/alarm-clock-elapsed.oga";

bool start(std::vector<std::string> words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0);
    pid_t child = 0;
    const bool started = ::posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    return started;
}
} // namespace

void ProgramSoundPlayer::playAlarm() {
    if (start({"canberra-gtk-play", "-i", soundName})) return;
    if (::access(soundFile, R_OK) != 0) return;
    if (!start({"pw-play", soundFile})) start({"paplay", soundFile});
}
} // namespace snipwren
