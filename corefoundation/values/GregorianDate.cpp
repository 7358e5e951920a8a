#include "corefoundation/values/GregorianDate.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace krl::cf {
namespace {

constexpr int64_t kSecondsPerDay = 86400;
constexpr int64_t kMonthsPerYear = 12;
/// From 0000-03-01 to 2001-01-01.
constexpr int64_t kDaysTo2001 = 730791;
/// Times beyond are no dates of any use; the limit keeps the arithmetic within 64 bits.
constexpr double kFarthestSecond = 1e17;
constexpr int64_t kFarthestYear = 2'000'000'000;

int64_t floorDivide(int64_t dividend, int64_t divisor) {
    const int64_t quotient = dividend / divisor;
    return quotient * divisor > dividend ? quotient - 1 : quotient;
}

struct Date {
    int64_t year;
    int64_t month; ///< 1 to 12
    int64_t day;   ///< 1 to 31
};

// Years are counted from March, so that the leap day is a year's last; 400 of them have 146097
// days.

int64_t daysSince2001(Date date) {
    const int64_t month = floorDivide(date.month - 3, kMonthsPerYear);
    const int64_t year = date.year + month;
    const int64_t monthFromMarch = date.month - 3 - month * kMonthsPerYear;
    const int64_t cycle = floorDivide(year, 400);
    const int64_t yearOfCycle = year - cycle * 400;
    const int64_t daysBeforeYear = yearOfCycle * 365 + yearOfCycle / 4 - yearOfCycle / 100;
    const int64_t daysBeforeMonth = (monthFromMarch * 153 + 2) / 5;
    return cycle * 146097 + daysBeforeYear + daysBeforeMonth + date.day - 1 - kDaysTo2001;
}

Date dateOf(int64_t daysSince2001) {
    const int64_t days = daysSince2001 + kDaysTo2001;
    const int64_t cycle = floorDivide(days, 146097);
    const int64_t dayOfCycle = days - cycle * 146097;
    const int64_t yearOfCycle =
        (dayOfCycle - dayOfCycle / 1460 + dayOfCycle / 36524 - dayOfCycle / 146096) / 365;
    const int64_t dayOfYear =
        dayOfCycle - (yearOfCycle * 365 + yearOfCycle / 4 - yearOfCycle / 100);
    const int64_t monthFromMarch = (dayOfYear * 5 + 2) / 153;
    const int64_t day = dayOfYear - (monthFromMarch * 153 + 2) / 5 + 1;
    const int64_t month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    return {cycle * 400 + yearOfCycle + (month <= 2 ? 1 : 0), month, day};
}

/// Takes numbers and signs from the front of a text.
class Scanner {
public:
    explicit Scanner(std::string_view text) : rest_(text) {}

    bool take(char expected) {
        if (rest_.empty() || rest_.front() != expected) {
            return false;
        }
        rest_.remove_prefix(1);
        return true;
    }

    bool takeTwoDigits(int64_t& value) { return takeDigits(2, value) == 2; }

    bool takeYear(int64_t& value) {
        const bool negative = take('-');
        if (takeDigits(rest_.size(), value) == 0) {
            return false;
        }
        value = negative ? -value : value;
        return true;
    }

    bool atEnd() const { return rest_.empty(); }

private:
    /// Takes the digits at the front, at most so many. @return how many.
    size_t takeDigits(size_t most, int64_t& value) {
        size_t count = 0;
        value = 0;
        for (; count < most && count < rest_.size() && rest_[count] >= '0' && rest_[count] <= '9';
             ++count) {
            value = std::min(value * 10 + (rest_[count] - '0'), kFarthestYear);
        }
        rest_.remove_prefix(count);
        return count;
    }

    std::string_view rest_;
};

} // namespace

std::string formatDate(CFAbsoluteTime time) {
    const double clamped =
        std::isnan(time) ? 0 : std::clamp(time, -kFarthestSecond, kFarthestSecond);
    const auto seconds = static_cast<int64_t>(std::floor(clamped));
    const int64_t days = floorDivide(seconds, kSecondsPerDay);
    const auto secondOfDay = static_cast<int>(seconds - days * kSecondsPerDay);
    const Date date = dateOf(days);
    char text[64];
    std::snprintf(text, sizeof text, "%04lld-%02d-%02dT%02d:%02d:%02dZ",
                  static_cast<long long>(date.year), static_cast<int>(date.month),
                  static_cast<int>(date.day), secondOfDay / 3600, secondOfDay / 60 % 60,
                  secondOfDay % 60);
    return text;
}

std::optional<CFAbsoluteTime> parseDate(std::string_view text) {
    Scanner scanner(text);
    Date date{};
    int64_t hour = 0;
    int64_t minute = 0;
    int64_t second = 0;
    const bool complete =
        scanner.takeYear(date.year) && scanner.take('-') && scanner.takeTwoDigits(date.month) &&
        scanner.take('-') && scanner.takeTwoDigits(date.day) && scanner.take('T') &&
        scanner.takeTwoDigits(hour) && scanner.take(':') && scanner.takeTwoDigits(minute) &&
        scanner.take(':') && scanner.takeTwoDigits(second) && scanner.take('Z') && scanner.atEnd();
    if (!complete) {
        return std::nullopt;
    }
    const int64_t seconds =
        daysSince2001(date) * kSecondsPerDay + hour * 3600 + minute * 60 + second;
    return static_cast<CFAbsoluteTime>(seconds);
}

} // namespace krl::cf
