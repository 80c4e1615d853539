#include <cstdio>
#include <istream>
#include <map>
#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "cli/Command.h"
#include "parsing/DurationParser.h"
#include "parsing/calculation/CalcExpressionEvaluator.h"
#include "parsing/dates/CaptureDateParser.h"
#include "parsing/dates/DateDetector.h"

namespace snipwren {
namespace {
using Json = nlohmann::ordered_json;

struct ParseOptions {
    std::vector<std::string> words;
    std::string reference;
    std::string zone;
    std::string locale;
    bool json = false;
    bool jsonLines = false;
    bool matches = false;
};

/// "YYYY-MM-DDTHH:MM:SS" on the calendar's clock.
std::string isoLocal(TimePoint moment, const Calendar& calendar) {
    const CivilTime civil = calendar.civil(moment);
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d:%02d:%02d", civil.year, civil.month, civil.day,
                  civil.hour, civil.minute, civil.second);
    return buffer;
}

/// "2026-08-10T09:00:00", with a blank for the T and without the seconds too; a "Z" at the end means UTC.
std::optional<TimePoint> parsedReference(const std::string& text, const Calendar& calendar) {
    CivilTime civil;
    int used = 0;
    char separator = 0;
    // Each field has its width, so no value can overflow.
    const int fields = std::sscanf(text.c_str(), "%4d-%2d-%2d%c%2d:%2d%n", &civil.year, &civil.month, &civil.day,
                                   &separator, &civil.hour, &civil.minute, &used);
    if (fields != 6 || (separator != 'T' && separator != ' ')) return std::nullopt;
    std::string rest = text.substr(static_cast<std::size_t>(used));
    int secondsUsed = 0;
    if (std::sscanf(rest.c_str(), ":%2d%n", &civil.second, &secondsUsed) == 1)
        rest.erase(0, static_cast<std::size_t>(secondsUsed));
    if (rest.empty()) return calendar.resolve(civil);
    if (rest != "Z") return std::nullopt;
    const auto utc = Calendar::make("UTC", calendar.localeName());
    return utc ? utc->resolve(civil) : std::nullopt;
}

constexpr std::string_view badReference = "The reference is not a date and time. Try: --reference 2026-08-10T09:00:00";

/// Calendar and reference of one run, from the options or the machine.
struct Setting {
    Calendar calendar;
    TimePoint reference;
};

std::optional<Setting> settingFrom(const ParseOptions& options, CommandContext& context) {
    Calendar calendar = context.environment.calendar();
    if (!options.zone.empty() || !options.locale.empty()) {
        auto made = Calendar::make(options.zone.empty() ? calendar.zoneName() : options.zone,
                                   options.locale.empty() ? calendar.localeName() : options.locale);
        if (!made) {
            context.fail(made.error().description);
            return std::nullopt;
        }
        calendar = std::move(*made);
    }
    if (options.reference.empty()) return Setting{calendar, context.environment.clock().now()};
    const auto reference = parsedReference(options.reference, calendar);
    if (!reference) {
        context.fail(std::string(badReference));
        return std::nullopt;
    }
    return Setting{calendar, *reference};
}

Json jsonOf(const CaptureDateParseResult& result, const Calendar& calendar) {
    return {{"title", result.title},
            {"date", result.date ? Json(isoLocal(*result.date, calendar)) : Json(nullptr)},
            {"hasTime", result.hasTime}};
}

Json matchesOf(const std::string& text, const Setting& setting) {
    Json list = Json::array();
    for (const DateMatch& match : DateDetector::detect(text, setting.reference, setting.calendar))
        list.push_back(
            {{"start", match.range.start},
             {"end", match.range.start + match.range.length},
             {"date", isoLocal(match.date, setting.calendar)},
             {"hasTime", checkHasTimePattern(std::string_view(text).substr(match.start, match.end - match.start))}});
    return list;
}

void print(const CaptureDateParseResult& result, const ParseOptions& options, const Setting& setting,
           CommandContext& context) {
    if (options.json) {
        context.out << jsonOf(result, setting.calendar).dump() << "\n";
        return;
    }
    context.out << "title  " << result.title << "\n";
    if (!result.date) {
        context.out << "date   none\n";
        return;
    }
    const std::string iso = isoLocal(*result.date, setting.calendar);
    context.out << "date   " << (result.hasTime ? iso : iso.substr(0, 10)) << "\n";
}

/// One JSON object a line in, one JSON value a line out, so that a whole set costs one start of the program.
void parseLines(const ParseOptions& options, CommandContext& context) {
    std::map<std::string, Calendar> calendars;
    std::string line;
    for (int number = 1; std::getline(context.in, line); ++number) {
        if (line.empty()) continue;
        const auto fault = [&](const std::string& sentence) {
            context.fail("Line " + std::to_string(number) + ": " + sentence);
        };
        const Json input = Json::parse(line, nullptr, false);
        const auto field = [&](const char* name) {
            const auto it = input.find(name);
            return it != input.end() && it->is_string() ? it->get<std::string>() : std::string();
        };
        if (!input.is_object() || !input.contains("text") || !input["text"].is_string())
            return fault(
                R"(This is not a JSON object with a text. Try: {"text":"tea at 5","reference":"2026-08-10T09:00:00","tz":"UTC"})");
        ParseOptions own = options;
        if (const std::string zone = field("tz"); !zone.empty()) own.zone = zone;
        if (const std::string reference = field("reference"); !reference.empty()) own.reference = reference;
        auto known = calendars.find(own.zone);
        if (known == calendars.end()) {
            const auto setting = settingFrom(own, context);
            if (!setting) return;
            known = calendars.emplace(own.zone, setting->calendar).first;
        }
        const auto reference =
            own.reference.empty() ? context.environment.clock().now() : parsedReference(own.reference, known->second);
        if (!reference) return fault(std::string(badReference));
        const Setting setting{known->second, *reference};
        const std::string text = field("text");
        const Json value = options.matches
                               ? matchesOf(text, setting)
                               : jsonOf(CaptureDateParser::parseTitleAndDate(text, setting.reference, setting.calendar),
                                        setting.calendar);
        context.out << value.dump() << "\n";
    }
}

void parseDate(const ParseOptions& options, CommandContext& context) {
    if (options.jsonLines) return parseLines(options, context);
    const auto setting = settingFrom(options, context);
    if (!setting) return;
    const std::string text = context.textFrom(options.words);
    if (options.matches) {
        context.out << matchesOf(text, *setting).dump() << "\n";
    } else {
        print(CaptureDateParser::parseTitleAndDate(text, setting->reference, setting->calendar), options, *setting,
              context);
    }
}

void parseAlarm(const ParseOptions& options, CommandContext& context) {
    const auto setting = settingFrom(options, context);
    if (!setting) return;
    const std::string text = context.textFrom(options.words);
    print(CaptureDateParser::parseAlarm(text, setting->reference, setting->calendar), options, *setting, context);
}

void parseDuration(const ParseOptions& options, CommandContext& context) {
    const auto result = DurationParser::parse(context.textFrom(options.words));
    if (!result) return context.fail(std::string(message(result.error())));
    if (options.json) {
        context.out << Json{{"interval", result->interval},
                            {"label", result->label ? Json(*result->label) : Json(nullptr)},
                            {"displayDuration", result->displayDuration}}
                           .dump()
                    << "\n";
        return;
    }
    context.out << result->displayDuration << (result->label ? "  " + *result->label : "") << "\n";
}

void parseCalc(const ParseOptions& options, CommandContext& context) {
    const auto result = CalcExpressionEvaluator::evaluate(context.textFrom(options.words));
    if (!result) return context.fail(std::string(message(result.error())));
    const std::string shown = CalcExpressionEvaluator::formatResult(*result);
    if (options.json) {
        context.out << Json{{"value", *result}, {"result", shown}}.dump() << "\n";
    } else {
        context.out << shown << "\n";
    }
}
} // namespace

void addParseCommand(CLI::App& app, CommandContext& context) {
    CLI::App* parse = app.add_subcommand("parse", "Show how a text is read, without capturing it");
    parse->require_subcommand(1);
    parse->footer("Examples:\n  snipwren parse date dentist friday 3pm\n  snipwren parse calc \"15% of 847\"");
    const auto options = std::make_shared<ParseOptions>();
    const auto add = [&](const char* name, const char* help, void (*run)(const ParseOptions&, CommandContext&)) {
        CLI::App* command = parse->add_subcommand(name, help);
        command->add_option("TEXT", options->words, "The text; standard input when there is none");
        command->add_flag("--json", options->json, "Print one JSON object");
        command->callback([run, options, &context] { run(*options, context); });
        return command;
    };
    CLI::App* date = add("date", "Title and date, as reminders and calendar read them", parseDate);
    CLI::App* alarm = add("alarm", "Title and moment, as alarms read them", parseAlarm);
    add("duration", "Duration and label, as timers read them", parseDuration);
    add("calc", "The result of a calculation", parseCalc);
    for (CLI::App* command : {date, alarm}) {
        command->add_option("--reference", options->reference, "The moment taken as now, such as 2026-08-10T09:00:00");
        command->add_option("--tz", options->zone, "Time zone, such as Europe/London; the system's by default");
        command->add_option("--locale", options->locale, "Locale, such as en_GB; the system's by default");
    }
    date->add_flag("--jsonl", options->jsonLines,
                   R"(Read one JSON object {"text","reference","tz"} a line, print one JSON value a line)");
    date->add_flag("--matches", options->matches,
                   R"(Print the date phrases themselves: [{"start","end","date","hasTime"}], in UTF-16 units)");
}
} // namespace snipwren
