#include "cli/UpdateCommand.h"

#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "app/MachineParts.h"
#include "app/RunningProgram.h"
#include "base/Text.h"

namespace snipwren {
namespace {
using Json = nlohmann::json;
using Offer = AppUpdateChecker::Offer;

void print(std::ostream& out, const Json& json) {
    out << json.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
}

void tell(CommandContext& context, const UpdateFailure& failure, bool json) {
    if (!json) return context.fail(failure.title + ": " + collapsedWhitespace(failure.text));
    print(context.out, {{"status", "failed"}, {"title", failure.title}, {"message", failure.text}});
    context.status = 1;
}

const char* statusName(Offer offer) {
    switch (offer) {
    case Offer::upToDate: return "upToDate";
    case Offer::available: return "available";
    case Offer::needsNewerSystem: return "needsNewerSystem";
    }
    return "";
}

Json describe(Offer offer, const ReleaseManifest& manifest, const RunningBuild& running) {
    return {{"status", statusName(offer)},
            {"version", manifest.version},
            {"build", manifest.build},
            {"minimumSystemVersion", manifest.minimumSystemVersion},
            {"releaseNotes", manifest.releaseNotes},
            {"currentVersion", running.version},
            {"currentBuild", running.build},
            {"packageManaged", running.isPackageManaged}};
}

std::string sentence(Offer offer, const ReleaseManifest& manifest, const RunningBuild& running) {
    switch (offer) {
    case Offer::upToDate: return fmt::format("{} is the latest release.", running.version);
    case Offer::available:
        return fmt::format("{} (build {}) is available; this is {} (build {}).", manifest.version, manifest.build,
                           running.version, running.build);
    case Offer::needsNewerSystem:
        return fmt::format("{} is available, but it needs system version {} and this is {}.", manifest.version,
                           manifest.minimumSystemVersion, running.systemVersion);
    }
    return {};
}

/// The manifest, its time noted as the last check; none when the failure was told.
std::optional<ReleaseManifest> fetched(CommandContext& context, const UpdateService& service, bool json) {
    auto manifest = service.fetchManifest({});
    if (!manifest) {
        tell(context, manifest.error(), json);
        return std::nullopt;
    }
    Environment& environment = context.environment;
    if (const auto noted =
            environment.defaults().set(AppUpdateChecker::lastCheckKey, secondsSince1970(environment.clock().now()));
        !noted)
        context.err << "snipwren: " << noted.error().description << "\n";
    return *std::move(manifest);
}
} // namespace

void checkForUpdate(CommandContext& context, const UpdateService& service, const RunningBuild& running, bool json) {
    const auto manifest = fetched(context, service, json);
    if (!manifest) return;
    const Offer offer = AppUpdateChecker::offer(*manifest, running);
    if (json) return print(context.out, describe(offer, *manifest, running));
    context.out << sentence(offer, *manifest, running) << "\n";
    if (offer != Offer::available) return;
    for (const std::string& note : manifest->releaseNotes) context.out << "  - " << note << "\n";
    context.out << (running.isPackageManaged ? AppUpdateChecker::packageManagerAdvice
                                             : "Install it with: snipwren update install")
                << "\n";
}

void installUpdate(CommandContext& context, const UpdateService& service, const RunningBuild& running,
                   const std::function<bool(const std::string&)>& open, bool json) {
    if (running.isPackageManaged)
        return tell(context, {"Update Through Your Package Manager", AppUpdateChecker::packageManagerAdvice}, json);
    const auto manifest = fetched(context, service, json);
    if (!manifest) return;
    const Offer offer = AppUpdateChecker::offer(*manifest, running);
    if (offer != Offer::available) {
        if (json) return print(context.out, describe(offer, *manifest, running));
        context.out << sentence(offer, *manifest, running) << "\n";
        return;
    }
    int shown = 0;
    const auto progress = [&](double fraction) {
        const int percent = static_cast<int>(fraction * 100);
        if (json || percent < shown + 10) return;
        shown = percent;
        context.err << "Downloading update… " << percent << " %\n";
    };
    const auto saved = service.download(*manifest, progress, {});
    if (!saved) return tell(context, saved.error(), json);
    const bool opened = open(*saved);
    if (json) {
        Json result = describe(offer, *manifest, running);
        result["path"] = *saved;
        result["opened"] = opened;
        result["status"] = "downloaded";
        return print(context.out, result);
    }
    context.out << "The verified update is at " << *saved << "\n";
    if (opened)
        context.out << "Install from it, then start Snipwren again.\n";
    else
        context.out << "It could not be opened. Open it manually to install " << manifest->version << "\n";
}

void addUpdateCommand(CLI::App& app, CommandContext& context) {
    CLI::App* update = app.add_subcommand("update", "Look for a newer release and install it");
    update->require_subcommand(1);
    const auto json = std::make_shared<bool>(false);
    const auto with = [&context](const auto& action) {
        const std::unique_ptr<HttpClient> http = makeHttpClient();
        const RunningBuild running = runningProgram();
        Environment& environment = context.environment;
        action(UpdateService(*http, environment.files(), environment.paths().downloads, running.version), running);
    };

    CLI::App* check = update->add_subcommand("check", "Ask the update service once");
    check->add_flag("--json", *json, "Print one JSON object");
    check->callback([&context, json, with] {
        with([&](const UpdateService& service, const RunningBuild& running) {
            checkForUpdate(context, service, running, *json);
        });
    });
    CLI::App* install = update->add_subcommand("install", "Download the newest release, verify it and open it");
    install->add_flag("--json", *json, "Print one JSON object");
    install->callback([&context, json, with] {
        with([&](const UpdateService& service, const RunningBuild& running) {
            installUpdate(context, service, running, openWithDesktop, *json);
        });
    });
}
} // namespace snipwren
