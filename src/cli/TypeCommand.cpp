// `snipwren type`: characters go key by key into a field of the virtual desktop, through the real tap and router.
#include <map>
#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "base/Text.h"
#include "cli/CaptureSession.h"
#include "cli/Command.h"

namespace snipwren {
namespace {
struct Options {
    std::vector<std::string> words;
    std::string application = "com.example.editor";
    VirtualFieldKind field = VirtualFieldKind::plain;
    bool json = false;
    bool steps = false;
};

/// "\e" is Escape, "\b" Delete, "\n" Return, "\\" a backslash; other backslashes are typed.
std::string keysFrom(const std::string& text) {
    std::string keys;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char next = i + 1 < text.size() ? text[i + 1] : '\0';
        const char key = text[i] != '\\' ? '\0' : next == 'e' ? '\x1b' : next == 'b' ? '\b' : next == 'n' ? '\n' : next;
        if (key == '\0' || (key == next && next != '\\')) {
            keys += text[i];
        } else {
            keys += key;
            ++i;
        }
    }
    return keys;
}

void printJson(std::ostream& out, CaptureSession& session, VirtualDesktop::FieldId field) {
    using nlohmann::json;
    json result{
        {"field", session.host().desktop().text(field)}, {"receipts", json::array()}, {"failures", json::array()}};
    for (const Landing& landing : session.host().landings()) {
        json receipt{{"target", landing.target}, {"text", landing.text}, {"receipt", landing.receipt}};
        if (landing.revealPath) receipt["path"] = *landing.revealPath;
        result["receipts"].push_back(std::move(receipt));
    }
    for (const auto& failure : session.failures())
        result["failures"].push_back({{"command", failure.command}, {"message", failure.message}});
    if (const auto clipboard = session.host().pasteboard().string()) result["clipboard"] = *clipboard;
    const CaptureState& state = session.application().router().state();
    if (state.currentTarget)
        result["overlay"] = {{"target", state.currentTarget->commandName()}, {"text", state.messageInput}};
    out << result.dump(2, ' ', false, json::error_handler_t::replace) << "\n";
}

void printText(std::ostream& out, CaptureSession& session, VirtualDesktop::FieldId field) {
    out << "field:     \"" << session.host().desktop().text(field) << "\"\n";
    for (const Landing& landing : session.host().landings()) {
        out << "receipt:   " << landing.target << " → " << landing.receipt << "\n";
        if (landing.revealPath) out << "file:      " << *landing.revealPath << "\n";
    }
    if (const auto clipboard = session.host().pasteboard().string()) out << "clipboard: \"" << *clipboard << "\"\n";
    const CaptureState& state = session.application().router().state();
    if (!state.currentTarget) return;
    out << "overlay:   still open for //" << state.currentTarget->commandName() << " with \"" << state.messageInput
        << "\"";
    if (const auto& preview = state.calcLivePreviewText ? state.calcLivePreviewText : state.livePreviewText)
        out << " (" << *preview << ")";
    out << "; end the line with a newline to send it\n";
}

void type(CommandContext& context, const Options& options) {
    const std::string keys = keysFrom(context.textFrom(options.words));
    if (options.steps) context.environment.showLogOn(&context.err);
    CaptureSession session(context);
    session.recover();
    VirtualDesktop& desktop = session.host().desktop();
    const auto field = desktop.addField(options.application, options.field);
    desktop.focus(field);
    session.application().startTap();
    desktop.waitForTap();
    for (std::size_t i = 0; i < keys.size();) {
        desktop.pressCharacter(nextScalar(keys, i));
        context.environment.loop().runReady();
    }
    session.settle();
    for (const auto& failure : session.failures()) context.fail(failure.message);
    if (const std::string& fault = session.application().router().state().fault; !fault.empty()) context.fail(fault);
    options.json ? printJson(context.out, session, field) : printText(context.out, session, field);
    context.environment.showLogOn(nullptr);
}
} // namespace

void addTypeCommand(CLI::App& app, CommandContext& context) {
    const auto options = std::make_shared<Options>();
    CLI::App* type = app.add_subcommand("type", "Type into a field of the virtual desktop, triggers and all");
    type->add_option("TEXT", options->words, "What to type; standard input when there is none");
    type->add_option("--app", options->application, "Identifier of the application that has the field");
    const std::map<std::string, VirtualFieldKind> kinds{{"plain", VirtualFieldKind::plain},
                                                        {"multiline", VirtualFieldKind::multiline},
                                                        {"password", VirtualFieldKind::password},
                                                        {"structured", VirtualFieldKind::structured},
                                                        {"inaccessible", VirtualFieldKind::inaccessible}};
    type->add_option("--field", options->field, "Kind of the field")->transform(CLI::CheckedTransformer(kinds));
    type->add_flag("--json", options->json, "Print what came of it as JSON");
    type->add_flag("--steps", options->steps, "Show the log lines of each step on standard error");
    type->footer("A newline is Return, \\e Escape, \\b Delete.\nExamples:\n"
                 "  printf 'Hello, //note buy milk\\n' | snipwren type\n"
                 "  snipwren type --field password 'secret //note x\\n'");
    type->callback([&context, options] { snipwren::type(context, *options); });
}
} // namespace snipwren
