#include "parsing/dates/SpanReader.h"

#include <algorithm>
#include <cmath>

namespace snipwren {
using W = DateWord;

namespace {
/// More than anybody means, and far from any overflow.
constexpr double maxAmount = 1e6;

bool add(TimeSpan& span, double amount, TimeUnit unit) {
    if (!(amount >= 0) || amount > maxAmount) return false;
    const auto whole = [](double value) { return static_cast<int>(std::lround(value)); };
    switch (unit) {
    case TimeUnit::second: span.seconds += std::llround(amount); break;
    case TimeUnit::minute: span.seconds += std::llround(amount * 60); break;
    case TimeUnit::hour: span.seconds += std::llround(amount * 3600); break;
    case TimeUnit::day: span.days += whole(amount); break;
    case TimeUnit::week:
    case TimeUnit::weekend: span.days += whole(amount * 7); break;
    case TimeUnit::fortnight: span.days += whole(amount * 14); break;
    case TimeUnit::month:
        span.months += static_cast<int>(amount);
        span.days += whole((amount - std::floor(amount)) * 30);
        break;
    case TimeUnit::year: span.months += whole(amount * 12); break;
    }
    span.exact |= unit <= TimeUnit::hour;
    return true;
}
} // namespace

std::optional<std::chrono::sys_days> moved(std::chrono::sys_days day, const TimeSpan& span, int sign) {
    using namespace std::chrono;
    const year_month_day from(day);
    const long long index = static_cast<long long>(static_cast<int>(from.year())) * 12
                            + static_cast<unsigned>(from.month()) - 1 + static_cast<long long>(sign) * span.months;
    if (index < 12 || index >= 9999LL * 12) return std::nullopt;
    const int toYear = static_cast<int>(index / 12);
    const int toMonth = static_cast<int>(index % 12) + 1;
    const int toDay = std::min(static_cast<int>(static_cast<unsigned>(from.day())), daysInMonth(toYear, toMonth));
    const sys_days shifted =
        sys_days(year(toYear) / month(static_cast<unsigned>(toMonth)) / std::chrono::day(static_cast<unsigned>(toDay)))
        + days(sign * span.days);
    const int lastYear = static_cast<int>(year_month_day(shifted).year());
    if (lastYear < 1 || lastYear > 9998) return std::nullopt;
    return shifted;
}

std::size_t SpanReader::unitEnd(std::size_t index, TimeUnit& unit) const {
    const DateToken& token = tokens_[index];
    if (token.kind == W::ordinal && token.value == 2) { // "one second"
        unit = TimeUnit::second;
        return index + 1;
    }
    if (token.kind != W::unit || token.value == static_cast<int>(TimeUnit::weekend)) return 0;
    unit = static_cast<TimeUnit>(token.value);
    return index + 1;
}

std::size_t SpanReader::numberEnd(std::size_t index, double& amount) const {
    const DateToken& token = tokens_[index];
    amount = token.value;
    if (token.kind == W::cardinal) {
        const std::size_t next = tokens_.isDash(index + 1) ? index + 2 : index + 1;
        if (token.value >= 20 && tokens_.is(next, W::cardinal) && tokens_[next].value < 10) {
            amount += tokens_[next].value;
            return next + 1;
        }
        return index + 1;
    }
    if (token.kind != W::number || token.digits > 6) return 0;
    const DateToken& symbol = tokens_[index + 1];
    const DateToken& second = tokens_[index + 2];
    if (symbol.kind == W::symbol && !symbol.spaced && second.kind == W::number && !second.spaced) {
        if (symbol.value == '.' && second.digits <= 4) {
            amount += second.value / std::pow(10.0, second.digits);
            return index + 3;
        }
        if (symbol.value == '/' && second.value > 0) {
            amount /= second.value;
            return index + 3;
        }
        return 0;
    }
    if (symbol.kind == W::symbol && symbol.value == 0xBD) { // One half, as a character.
        amount += 0.5;
        return index + 2;
    }
    return index + 1;
}

std::size_t SpanReader::amountEnd(std::size_t index, double& amount) const {
    std::size_t at = index;
    if (tokens_.is(at, W::article)) {
        amount = 1;
        ++at;
        if (!tokens_.is(at, W::couple) && !tokens_.is(at, W::few) && !tokens_.is(at, W::quarter)
            && !tokens_.is(at, W::half))
            return at;
    }
    switch (tokens_[at].kind) {
    case W::couple:
    case W::few:
    case W::several:
        amount = tokens_[at].value;
        ++at;
        return tokens_.is(at, W::of) ? at + 1 : at;
    case W::half:
        amount = 0.5;
        ++at;
        return tokens_.is(at, W::article) ? at + 1 : at;
    case W::quarter:
        amount = 0.25;
        if (!tokens_.is(at + 1, W::of) || !tokens_.is(at + 2, W::article)) return 0;
        return at + 3;
    default: break;
    }
    std::size_t end = numberEnd(at, amount);
    if (end != 0 && tokens_.is(end, W::conjunction) && tokens_.is(end + 1, W::article)
        && tokens_.is(end + 2, W::half)) {
        amount += 0.5; // "two and a half hours"
        end += 3;
    }
    return end;
}

TimeSpan SpanReader::read(std::size_t index) const {
    double amount = 0;
    TimeUnit unit = TimeUnit::day;
    const std::size_t amountStop = amountEnd(index, amount);
    if (amountStop == 0) return {};
    const std::size_t stop = unitEnd(amountStop, unit);
    if (stop == 0) return {};
    TimeSpan span;
    span.end = stop;
    if (tokens_.is(stop, W::conjunction) && tokens_.is(stop + 1, W::article) && tokens_.is(stop + 2, W::half)) {
        amount += 0.5; // "an hour and a half"
        span.end = stop + 3;
    }
    if (!add(span, amount, unit)) return {};
    if (unit != TimeUnit::hour || span.end != stop) return span;
    // "1 hour 30 minutes", "an hour and 15 minutes", "2h30m".
    const std::size_t rest = tokens_.is(stop, W::conjunction) || tokens_.is(stop, U',') ? stop + 1 : stop;
    if (!tokens_.is(rest, W::number) && !tokens_.is(rest, W::cardinal)) return span;
    const std::size_t restAmount = numberEnd(rest, amount);
    const std::size_t restStop = restAmount != 0 ? unitEnd(restAmount, unit) : 0;
    if (restStop != 0 && unit <= TimeUnit::minute && add(span, amount, unit)) span.end = restStop;
    return span;
}
} // namespace snipwren
