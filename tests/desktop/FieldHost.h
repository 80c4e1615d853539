#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace snipwren {
/// A program with text fields of our own ("entry", "multi", "password", "readonly") in a toolkit, told what to do over
/// its standard input, so that what it really holds is known without accessibility.
class FieldHost {
public:
    /// The last three have hand-made accessibility that misbehaves, and hold "Hello //note".
    enum class Toolkit { gtk3, gtk4, qt, lying, late, broken };
    static const char* name(Toolkit toolkit);

    /// Waits until the window has the keyboard.
    explicit FieldHost(Toolkit toolkit);
    ~FieldHost();
    FieldHost(const FieldHost&) = delete;
    FieldHost& operator=(const FieldHost&) = delete;

    bool isReady() const { return ready_; }
    pid_t processId() const { return process_; }
    void focus(const std::string& field);
    /// The caret goes to the end.
    void set(const std::string& field, const std::string& text);
    std::string get(const std::string& field);
    void select(const std::string& field, int start, int end);
    /// x, y and height of the multi-line field's caret from the window's contents.
    std::vector<int> caret();
    void signal(int number);

private:
    std::string ask(const std::string& line);
    std::string readLine();

    pid_t process_ = -1;
    int input_ = -1;
    int output_ = -1;
    bool ready_ = false;
    std::string buffered_;
};
} // namespace snipwren
