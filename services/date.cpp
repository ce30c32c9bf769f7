#include "services/date.h"

#include <boost/date_time/gregorian_calendar.hpp>
#include <boost/date_time/year_month_day.hpp>
#include <cstring>

namespace MTF {
namespace {

constexpr long long seconds_of_day = 86400;

// libc's conversions lock the whole process for each date of each file, and take three to seven
// times the instructions.
using Number = unsigned short;
using Civil = boost::date_time::year_month_day_base<Number, Number, Number>;
using Calendar = boost::date_time::gregorian_calendar_base<Civil, unsigned int>;

// Days are counted from a day in 4714 BC.
constexpr long long epoch = Calendar::day_number({1970, 1, 1});
constexpr long long first_day = Calendar::day_number({1, 1, 1});
constexpr long long last_day = Calendar::day_number({16383, 12, 31});

}  // namespace

void time_to_mtf_date_time(long long time, unsigned char* out) {
  const long long days = (time >= 0 ? time : time - (seconds_of_day - 1)) / seconds_of_day;
  const auto rest = static_cast<unsigned>(time - days * seconds_of_day);
  if (days < first_day - epoch || days > last_day - epoch) {
    std::memset(out, 0, date_time_size);
    return;
  }
  const Civil date = Calendar::from_day_number(static_cast<unsigned int>(days + epoch));
  unsigned long long bits = date.year;
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
  const Civil civil(static_cast<Number>(bits >> 26), bits >> 22 & 15, bits >> 17 & 31);
  if (civil.month < 1 || civil.month > 12 || civil.day < 1) return 0;
  const long long days = Calendar::day_number(civil) - epoch;
  return days * seconds_of_day + hour * 3600 + minute * 60 + second;
}

}  // namespace MTF
