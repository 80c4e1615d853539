#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Clock.h"
#include "base/Result.h"
#include "platform/FocusedField.h"

struct sd_bus;
struct sd_bus_message;

namespace snipwren {
/// An accessible object: the connection of its program and its path there.
struct AtSpiReference {
    std::string bus;
    std::string path;

    bool isValid() const { return !bus.empty() && !path.empty() && path != "/org/a11y/atspi/null"; }
    friend bool operator==(const AtSpiReference&, const AtSpiReference&) = default;
};

struct AtSpiEvent {
    /// "StateChanged", "Activate", "Deactivate", "TextCaretMoved"; window events always in upper case.
    std::string member;
    std::string detail;
    int value = 0;
    AtSpiReference source;
};

/// Bits of GetState that matter here.
enum class AtSpiState { active = 1, editable = 7, focused = 12, readOnly = 43 };
/// Numbers of GetRole; the names of roles differ between toolkits and languages.
enum class AtSpiRole { passwordText = 40, terminal = 60, text = 61, application = 75, entry = 79 };
enum class AtSpiCoordinates { screen = 0, window = 1 };

struct AtSpiRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

/// A connection to the accessibility bus with bounded calls. Every call takes at most `callTimeout` and no call is made
/// after the job's budget is used up or one of its calls timed out: a program that hangs costs one time-out.
/// Belongs to one thread. Answers come from other programs and are bounded here.
class AtSpiBus {
public:
    static constexpr std::chrono::milliseconds callTimeout{20};
    static constexpr std::size_t maxListLength = 512;

    AtSpiBus() = default;
    ~AtSpiBus();
    AtSpiBus(const AtSpiBus&) = delete;
    AtSpiBus& operator=(const AtSpiBus&) = delete;

    /// Finds the accessibility bus through the session bus, switches accessibility on for programs that wait for that,
    /// and subscribes to focus events. May take seconds when the bus has to be started. The answer is a sentence.
    std::optional<std::string> open();
    void close();
    bool isOpen() const { return bus_ != nullptr; }
    int fileDescriptor() const;
    short pollEvents() const;
    /// Reads what has arrived and appends the events; false when the connection is lost.
    bool process(std::vector<AtSpiEvent>& events);

    /// Starts a job: from now on calls may use this much time together.
    void beginJob(std::chrono::milliseconds budget);
    /// A call of this job was not answered in time.
    bool timedOut() const { return timedOut_; }

    std::optional<unsigned> role(const AtSpiReference& object);
    std::optional<std::uint64_t> states(const AtSpiReference& object);
    std::optional<std::vector<std::string>> interfaces(const AtSpiReference& object);
    std::optional<std::map<std::string, std::string>> attributes(const AtSpiReference& object);
    std::optional<std::vector<AtSpiReference>> children(const AtSpiReference& object);
    std::optional<std::string> name(const AtSpiReference& object);
    std::optional<std::string> description(const AtSpiReference& object);
    std::optional<std::string> accessibleId(const AtSpiReference& object);
    std::optional<std::string> toolkitName(const std::string& bus);
    /// 0 when unknown. Kept per connection.
    int processId(const std::string& bus);
    std::vector<AtSpiReference> applications();

    std::optional<int> characterCount(const AtSpiReference& object);
    std::optional<int> caretOffset(const AtSpiReference& object);
    std::optional<std::string> text(const AtSpiReference& object, int start, int end);
    std::optional<int> selectionCount(const AtSpiReference& object);
    std::optional<std::pair<int, int>> selection(const AtSpiReference& object, int number);
    std::optional<AtSpiRect> extents(const AtSpiReference& object, AtSpiCoordinates coordinates);
    std::optional<AtSpiRect> characterExtents(const AtSpiReference& object, int offset, AtSpiCoordinates coordinates);
    std::optional<AtSpiRect> rangeExtents(const AtSpiReference& object, int start, int end,
                                          AtSpiCoordinates coordinates);

    EditOutcome deleteText(const AtSpiReference& object, int start, int end);
    /// `length` counts bytes in GTK and UTF-16 units in Qt.
    EditOutcome insertText(const AtSpiReference& object, int position, const std::string& text, int length);
    EditOutcome setTextContents(const AtSpiReference& object, const std::string& text);

private:
    struct MessageFree {
        void operator()(sd_bus_message* message) const;
    };
    using Message = std::unique_ptr<sd_bus_message, MessageFree>;
    enum class Sent { answered, failed, unanswered, notSent };

    Message newCall(const AtSpiReference& object, const char* interface, const char* member);
    Sent send(Message call, Message& answer);
    Message ask(Message call);
    Message property(const AtSpiReference& object, const char* interface, const char* name, const char* signature);
    std::optional<std::string> textProperty(const AtSpiReference& object, const char* interface, const char* name);
    EditOutcome edit(Message call);
    void receive(sd_bus_message* message);

    sd_bus* bus_ = nullptr;
    std::vector<AtSpiEvent> received_;
    SteadyPoint deadline_{};
    bool timedOut_ = false;
    std::map<std::string, int> processIds_;
};
} // namespace snipwren
