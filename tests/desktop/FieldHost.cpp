#include "desktop/FieldHost.h"

#include <csignal>
#include <sstream>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace snipwren {
namespace {
constexpr int answerTimeout = 30'000; // Milliseconds; a toolkit starts slowly on a busy machine.
} // namespace

const char* FieldHost::name(Toolkit toolkit) {
    switch (toolkit) {
    case Toolkit::gtk3: return "GTK 3";
    case Toolkit::gtk4: return "GTK 4";
    case Toolkit::qt: return "Qt";
    case Toolkit::lying: return "lie";
    case Toolkit::late: return "late";
    case Toolkit::broken: return "broken";
    }
    return "";
}

FieldHost::FieldHost(Toolkit toolkit) {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(in[0], 0);
        dup2(out[1], 1);
        if (toolkit == Toolkit::qt)
            execl(SNIPWREN_QT_FIELDS, SNIPWREN_QT_FIELDS, nullptr);
        else if (toolkit == Toolkit::gtk3 || toolkit == Toolkit::gtk4)
            execl("/usr/bin/python3", "python3", SNIPWREN_HOSTS "/gtk_fields.py", toolkit == Toolkit::gtk3 ? "3" : "4",
                  nullptr);
        else
            execl("/usr/bin/python3", "python3", SNIPWREN_HOSTS "/lying_field.py", name(toolkit), nullptr);
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    input_ = in[1];
    output_ = out[0];
    ready_ = readLine() == "ready";
}

FieldHost::~FieldHost() {
    close(input_);
    if (process_ > 0) {
        kill(process_, SIGCONT);
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    close(output_);
}

std::string FieldHost::readLine() {
    for (;;) {
        if (const auto end = buffered_.find('\n'); end != std::string::npos) {
            const std::string line = buffered_.substr(0, end);
            buffered_.erase(0, end + 1);
            return line;
        }
        pollfd descriptor{output_, POLLIN, 0};
        char bytes[4096];
        if (poll(&descriptor, 1, answerTimeout) <= 0) return "timeout";
        const ssize_t count = read(output_, bytes, sizeof bytes);
        if (count <= 0) return "ended";
        buffered_.append(bytes, static_cast<std::size_t>(count));
    }
}

std::string FieldHost::ask(const std::string& line) {
    const std::string whole = line + "\n";
    if (write(input_, whole.data(), whole.size()) < 0) return "ended";
    return readLine();
}

void FieldHost::focus(const std::string& field) { ask("focus " + field); }

void FieldHost::set(const std::string& field, const std::string& text) {
    ask("set " + field + " " + nlohmann::json(text).dump());
}

std::string FieldHost::get(const std::string& field) {
    const auto value = nlohmann::json::parse(ask("get " + field), nullptr, false);
    return value.is_string() ? value.get<std::string>() : "no answer";
}

void FieldHost::select(const std::string& field, int start, int end) {
    ask("select " + field + " " + std::to_string(start) + " " + std::to_string(end));
}

std::vector<int> FieldHost::caret() {
    std::istringstream words(ask("caret multi"));
    std::vector<int> numbers;
    for (int number = 0; words >> number;) numbers.push_back(number);
    return numbers;
}

void FieldHost::signal(int number) { kill(process_, number); }
} // namespace snipwren
