#include "host/keys/time_types.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "host/keys/trimmed_type.h"
#include "host/values/value_text.h"

namespace tvsort::host {

namespace {

constexpr std::int64_t kMinuteSeconds = 60;
constexpr std::int64_t kHourSeconds = 3600;
constexpr std::int64_t kDaySeconds = 86400;

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

struct TimeOfDay {
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;
};

// Reads a text from its front. What does not fit is bad use, with how it is to be written.
class TimeReader {
  public:
    TimeReader(std::string_view text, const char* wanted, const char* advice)
        : text_(text), rest_(text), wanted_(wanted), advice_(advice) {}

    bool atEnd() const { return rest_.empty(); }
    bool take(char character) {
        if (!rest_.starts_with(character)) return false;
        rest_.remove_prefix(1);
        return true;
    }
    void finish() const {
        if (!atEnd()) bad(advice_);
    }

    std::int64_t days() {
        constexpr std::size_t kSignedYearDigitsMax = 6;
        const bool isNegative = take('-');
        const bool hasSign = isNegative || take('+');
        std::size_t digits = 4;
        while (hasSign && digits < kSignedYearDigitsMax && digits < rest_.size() &&
               isDigit(rest_[digits])) {
            digits += 1;
        }
        const int year = static_cast<int>(number(digits)) * (isNegative ? -1 : 1);
        need('-');
        const auto month = static_cast<unsigned>(number(2));
        need('-');
        const auto day = static_cast<unsigned>(number(2));
        // The calendar's own year has 16 bits; 400 years are one and the same number of days.
        constexpr int kCycleYears = 400;
        constexpr std::int64_t kCycleDays = 146097;
        const int cycle = year / kCycleYears - (year < 0 ? 1 : 0);
        const std::chrono::year_month_day date{std::chrono::year(year - cycle * kCycleYears),
                                               std::chrono::month(month), std::chrono::day(day)};
        if (!date.ok()) bad("there is no such day");
        return cycle * kCycleDays + std::chrono::sys_days(date).time_since_epoch().count();
    }

    TimeOfDay timeOfDay() {
        TimeOfDay time;
        const std::int64_t hours = number(2);
        need(':');
        const std::int64_t minutes = number(2);
        std::int64_t seconds = 0;
        if (take(':')) {
            seconds = number(2);
            if (take('.') || take(',')) time.nanoseconds = fraction();
        }
        time.seconds = hours * kHourSeconds + minutes * kMinuteSeconds + seconds;
        const bool isLastMoment =
            time.seconds == kDaySeconds && hours == 24 && time.nanoseconds == 0;
        if ((hours > 23 && !isLastMoment) || minutes > 59 || seconds > 60)
            bad("there is no such time");
        return time;
    }

    // Seconds that the zone is ahead of UTC.
    std::int64_t zone() {
        take(' ');
        if (atEnd() || take('Z') || take('z')) return 0;
        const bool isNegative = take('-');
        if (!isNegative && !take('+')) bad(advice_);
        std::int64_t seconds = number(2) * kHourSeconds;
        const bool hasColon = take(':');
        if (hasColon || !atEnd()) seconds += number(2) * kMinuteSeconds;
        if (hasColon && take(':')) seconds += number(2);
        if (seconds > kDaySeconds) bad("there is no such zone");
        return isNegative ? -seconds : seconds;
    }

  private:
    [[noreturn]] void bad(const char* reason) const { throw badValue(text_, wanted_, reason); }
    void need(char character) {
        if (!take(character)) bad(advice_);
    }
    std::int64_t number(std::size_t digits) {
        if (rest_.size() < digits ||
            !std::all_of(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(digits),
                         isDigit))
            bad(advice_);
        std::int64_t value = 0;
        for (std::size_t i = 0; i < digits; ++i)
            value = 10 * value + (rest_[i] - '0');
        rest_.remove_prefix(digits);
        return value;
    }
    std::int64_t fraction() {
        constexpr std::size_t kDigitsMax = 9;
        const std::size_t digits = static_cast<std::size_t>(
            std::find_if_not(rest_.begin(), rest_.end(), isDigit) - rest_.begin());
        if (digits == 0) bad(advice_);
        if (digits > kDigitsMax) bad("a second has nine digits behind the point at most");
        std::int64_t value = number(digits);
        for (std::size_t i = digits; i < kDigitsMax; ++i)
            value *= 10;
        return value;
    }

    std::string_view text_;
    std::string_view rest_;
    const char* wanted_;
    const char* advice_;
};

class DateType : public TrimmedType {
    void appendTrimmed(std::string_view text, KeyBytes& key) override {
        TimeReader reader(text, "date", "write it as 2024-02-29");
        const std::int64_t days = reader.days();
        reader.finish();
        appendCompact(days, key);
    }
};

class TimeType : public TrimmedType {
    void appendTrimmed(std::string_view text, KeyBytes& key) override {
        TimeReader reader(text, "time", "write it as 23:59 or 23:59:59.5");
        const TimeOfDay time = reader.timeOfDay();
        reader.finish();
        appendCompact(time.seconds, key);
        appendCompact(time.nanoseconds, key);
    }
};

class TimestampType : public TrimmedType {
  public:
    explicit TimestampType(bool hasZone) : hasZone_(hasZone) {}

  private:
    void appendTrimmed(std::string_view text, KeyBytes& key) override {
        TimeReader reader(text, hasZone_ ? "timestamp with zone" : "timestamp",
                          hasZone_ ? "write it as 2024-02-29T23:59:59+02:00"
                                   : "write it as 2024-02-29T23:59:59, or order by timestamptz "
                                     "where there are zones");
        std::int64_t seconds = reader.days() * kDaySeconds;
        TimeOfDay time;
        if (reader.take('T') || reader.take('t') || (!reader.atEnd() && reader.take(' '))) {
            time = reader.timeOfDay();
            if (hasZone_) seconds -= reader.zone();
        }
        reader.finish();
        appendCompact(seconds + time.seconds, key);
        appendCompact(time.nanoseconds, key);
    }

    bool hasZone_;
};

class MonthType : public TrimmedType {
    void appendTrimmed(std::string_view text, KeyBytes& key) override {
        constexpr std::array<std::string_view, 12> kMonths = {
            "january", "february", "march",     "april",   "may",      "june",
            "july",    "august",   "september", "october", "november", "december"};
        constexpr std::size_t kShort = 3;
        std::string word(text);
        std::transform(word.begin(), word.end(), word.begin(), [](char letter) {
            return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
        });
        for (std::size_t i = 0; i < kMonths.size(); ++i) {
            if (word != kMonths[i] && word != kMonths[i].substr(0, kShort)) continue;
            key.push_back(static_cast<Byte>(i + 1));
            return;
        }
        throw badValue(text, "month", "write January to December, or Jan to Dec");
    }
};

}  // namespace

std::unique_ptr<OrderedType> makeDate(const TypeText&) {
    return std::make_unique<DateType>();
}

std::unique_ptr<OrderedType> makeTime(const TypeText&) {
    return std::make_unique<TimeType>();
}

std::unique_ptr<OrderedType> makeTimestamp(const TypeText&) {
    return std::make_unique<TimestampType>(false);
}

std::unique_ptr<OrderedType> makeTimestampWithZone(const TypeText&) {
    return std::make_unique<TimestampType>(true);
}

std::unique_ptr<OrderedType> makeMonth(const TypeText&) {
    return std::make_unique<MonthType>();
}

}  // namespace tvsort::host
