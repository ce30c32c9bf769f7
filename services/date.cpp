#include "services/date.h"

#include <cstring>

namespace MTF {
namespace {

constexpr long long seconds_of_day = 86400;
constexpr long long first_year = 1;
constexpr long long last_year = 16383;

struct Civil {
  long long year;
  unsigned month;
  unsigned day;
};

// Days since 1970-01-01 and the proleptic Gregorian calendar, computed over eras of 400 years that
// start on a 1st of March, so that a leap day is the last of its year.
Civil civil_of(long long days) {
  days += 719468;
  const long long era = (days >= 0 ? days : days - 146096) / 146097;
  const auto day_of_era = static_cast<unsigned>(days - era * 146097);
  const unsigned year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const unsigned day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const unsigned shifted_month = (5 * day_of_year + 2) / 153;
  const unsigned month = shifted_month < 10 ? shifted_month + 3 : shifted_month - 9;
  const long long year = static_cast<long long>(year_of_era) + era * 400 + (month <= 2 ? 1 : 0);
  return {year, month, day_of_year - (153 * shifted_month + 2) / 5 + 1};
}

long long days_of(const Civil& date) {
  const long long year = date.year - (date.month <= 2 ? 1 : 0);
  const long long era = (year >= 0 ? year : year - 399) / 400;
  const auto year_of_era = static_cast<unsigned>(year - era * 400);
  const unsigned shifted_month = date.month > 2 ? date.month - 3 : date.month + 9;
  const unsigned day_of_year = (153 * shifted_month + 2) / 5 + date.day - 1;
  const unsigned day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  return era * 146097 + static_cast<long long>(day_of_era) - 719468;
}

}  // namespace

void time_to_mtf_date_time(long long time, unsigned char* out) {
  const long long days = (time >= 0 ? time : time - (seconds_of_day - 1)) / seconds_of_day;
  const auto rest = static_cast<unsigned>(time - days * seconds_of_day);
  const Civil date = civil_of(days);
  if (date.year < first_year || date.year > last_year) {
    std::memset(out, 0, date_time_size);
    return;
  }
  unsigned long long bits = static_cast<unsigned long long>(date.year);
  bits = bits << 4 | date.month;
  bits = bits << 5 | date.day;
  bits = bits << 5 | rest / 3600;
  bits = bits << 6 | rest / 60 % 60;
  bits = bits << 6 | rest % 60;
  for (unsigned i = 0; i < date_time_size; ++i) {
    out[i] = static_cast<unsigned char>(bits >> (8 * (date_time_size - 1 - i)));
  }
}

long long mtf_date_time_to_time(const unsigned char* date) {
  unsigned long long bits = 0;
  for (unsigned i = 0; i < date_time_size; ++i) bits = bits << 8 | date[i];
  const auto second = static_cast<long long>(bits & 63);
  const auto minute = static_cast<long long>(bits >> 6 & 63);
  const auto hour = static_cast<long long>(bits >> 12 & 31);
  const Civil civil{static_cast<long long>(bits >> 26), static_cast<unsigned>(bits >> 22 & 15),
                    static_cast<unsigned>(bits >> 17 & 31)};
  if (civil.month < 1 || civil.month > 12 || civil.day < 1) return 0;
  return days_of(civil) * seconds_of_day + hour * 3600 + minute * 60 + second;
}

}  // namespace MTF
