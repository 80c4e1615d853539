#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include <csignal>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hosts/linux/FileDescriptor.h"

extern char** environ;

namespace snipwren {
/// A program that talks over its standard streams, ended with this object.
class ChildProgram {
public:
    explicit ChildProgram(std::vector<std::string> arguments) {
        int in[2], out[2];
        if (pipe(in) != 0 || pipe(out) != 0) return;
        const FileDescriptor childIn(in[0]), childOut(out[1]);
        input_ = FileDescriptor(in[1]);
        output_ = FileDescriptor(out[0]);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, childIn.get(), 0);
        posix_spawn_file_actions_adddup2(&actions, childOut.get(), 1);
        for (const int fd : {in[0], in[1], out[0], out[1]}) posix_spawn_file_actions_addclose(&actions, fd);
        std::vector<char*> argv;
        for (std::string& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~ChildProgram() { end(); }
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    /// The next line it prints; empty at the end.
    std::string line() {
        std::string text;
        char c = 0;
        while (read(output_.get(), &c, 1) == 1 && c != '\n') text += c;
        return text;
    }
    /// For signals that stop or end it: waits until they have.
    void signal(int number) const {
        kill(pid_, number);
        siginfo_t info;
        if (number != SIGCONT) waitid(P_PID, static_cast<id_t>(pid_), &info, WSTOPPED | WEXITED | WNOWAIT);
    }
    pid_t pid() const { return pid_; }
    /// Closes its input and waits; answers the last line it printed.
    std::string end() {
        if (pid_ <= 0) return {};
        input_.reset();
        std::string last = line();
        kill(pid_, SIGCONT);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
        return last;
    }

private:
    FileDescriptor input_;
    FileDescriptor output_;
    pid_t pid_ = -1;
};
} // namespace snipwren
