// Which jobs stay.
#include "agent/keep_rule.h"

#include <gtest/gtest.h>

#include <ctime>

#include "tests/support/process.h"

namespace {

using agent::Job_Facts;
using agent::Keep_Rule;

// A day of November and December 2026, at noon in a zone far from that of the dates.
long long day(int number, int hour = 12) {
  std::tm parts{};
  parts.tm_year = 126;
  parts.tm_mon = 10;
  parts.tm_mday = number;
  parts.tm_hour = hour;
  return timegm(&parts) + 11 * 3600;
}

Job_Facts job(unsigned int seq, long long time, std::initializer_list<unsigned int> needs = {}) {
  Job_Facts facts;
  facts.seq = seq;
  facts.complete = facts.sound = true;
  facts.time = time;
  facts.held_by[seq] = 1;
  for (const unsigned int each : needs) facts.held_by[each] = 0;
  return facts;
}

std::string kept(const Keep_Rule& rule, const std::vector<Job_Facts>& jobs) {
  std::string text;
  for (const auto& [seq, reason] : agent::find_kept(rule, jobs)) {
    text += (text.empty() ? "" : " | ") + std::to_string(seq) + ' ' + agent::reason_text(reason);
  }
  return text;
}

class Keep_Rules : public testing::Test {
 protected:
  // The local day begins eleven hours behind that of UTC.
  Keep_Rules() {
    ::setenv("TZ", "XXX11", 1);
    ::tzset();
  }
  ~Keep_Rules() override {
    ::unsetenv("TZ");
    ::tzset();
  }
};

TEST_F(Keep_Rules, OfEachPeriodTheNewest) {
  // The 1st of November 2026 is a Sunday.
  const std::vector<Job_Facts> jobs{job(1, day(-364)), job(2, day(-330)),    job(3, day(1)),
                                    job(4, day(2)),    job(5, day(8)),       job(6, day(9, 0)),
                                    job(7, day(9, 1)), job(8, day(9, 23)),   job(9, day(30)),
                                    job(10, day(31)),  job(12, day(31, 13)), job(13, day(32))};
  const struct {
    Keep_Rule rule;
    const char* kept;
  } cases[] = {
      {{2, 0, 0, 0, 0}, "12 last | 13 last"},
      {{0, 4, 0, 0, 0}, "8 daily | 9 daily | 12 daily | 13 daily"},
      {{0, 0, 4, 0, 0}, "3 weekly | 5 weekly | 8 weekly | 13 weekly"},
      {{0, 0, 0, 3, 0}, "2 monthly | 9 monthly | 13 monthly"},
      {{0, 0, 0, 0, 9}, "2 yearly | 13 yearly"},
      {{1, 2, 0, 2, 0}, "9 monthly | 12 daily | 13 last, daily, monthly"},
      {{99, 0, 0, 0, 0},
       "1 last | 2 last | 3 last | 4 last | 5 last | 6 last | 7 last | 8 last | 9 last | 10 last | "
       "12 last | 13 last"},
  };
  for (const auto& each : cases) EXPECT_EQ(kept(each.rule, jobs), each.kept);
  // The last day of the year and the next one lie in one week.
  EXPECT_EQ(kept({0, 0, 2, 0, 0}, {job(1, day(61)), job(2, day(62))}), "2 weekly");
  EXPECT_TRUE(agent::is_empty({}));
  EXPECT_FALSE(agent::is_empty({0, 0, 0, 0, 1}));
}

// 1 <- 2 <- 3 hold files of each other; 4 is a full job; 5 holds nothing of the job it started
// from.
TEST_F(Keep_Rules, WhatTheyNeed) {
  std::vector<Job_Facts> jobs{job(1, day(1)), job(2, day(2), {1}), job(3, day(3), {2}),
                              job(4, day(4)), job(5, day(5)),      job(6, day(6), {4})};
  jobs[4].incremental = true;
  jobs[4].base = 4;
  const auto last = [&](unsigned int count) { return kept({count, 0, 0, 0, 0}, jobs); };
  EXPECT_EQ(last(1), "4 needed by 6 | 6 last");
  EXPECT_EQ(last(2), "4 needed by 6 | 5 last | 6 last") << "5 needs nothing of 4";
  EXPECT_EQ(last(4),
            "1 needed by 2 | 2 needed by 3 | 3 last | 4 last; needed by 6 | 5 last | 6 last");
  jobs[4].sound = false;
  EXPECT_EQ(last(2), "4 needed by 5-6 | 5 last | 6 last");
  jobs[4].base = 0;
  EXPECT_EQ(
      last(2),
      "1 needed by 2,5 | 2 needed by 3,5 | 3 needed by 5 | 4 needed by 5-6 | 5 last | 6 last");
}

TEST_F(Keep_Rules, IncompleteAndUndatedJobsStay) {
  std::vector<Job_Facts> jobs{job(1, day(1)), job(2, day(2)), job(3, 0), job(4, day(4))};
  jobs[3].complete = false;
  EXPECT_EQ(kept({1, 0, 0, 0, 0}, jobs), "3 last | 4 incomplete");
  EXPECT_EQ(kept({0, 1, 1, 0, 0}, jobs), "2 daily, weekly | 3 has no date | 4 incomplete");
  jobs[3].incremental = true;
  jobs[3].base = 1;
  EXPECT_EQ(kept({0, 1, 0, 0, 0}, jobs), "1 needed by 4 | 2 daily | 3 has no date | 4 incomplete");
}

}  // namespace
