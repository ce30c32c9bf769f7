// What the program says, down to the letter.
#include <ace/Log_Record.h>
#include <ace/Time_Value.h>
#include <gtest/gtest.h>

#include <sstream>

#include "agent/exit_code.h"
#include "agent/full_report.h"
#include "agent/job_events.h"
#include "agent/job_log.h"
#include "agent/log_text.h"
#include "agent/progress.h"
#include "agent/text.h"
#include "platform/native_path.h"

namespace {

class Output : public testing::Test {
 protected:
  void log(agent::Job_Log& log, ACE_Log_Priority priority, const char* text) {
    ACE_Log_Record record(priority, ACE_Time_Value::zero, 0);
    record.msg_data(text);
    log.log(record);
  }

  std::ostringstream out_, err_;
  agent::Console console_{out_, err_};
  agent::Notes notes_{console_, true};
};

TEST_F(Output, Text) {
  const std::pair<const char*, const char*> names[] = {
      {"/a b", "/a b"},           {"a\nb", "a\\nb"},        {"a\\nb", "a\\\\nb"},
      {"\x1b[2J", "\\x1b[2J"},    {"\t\x7f", "\\t\\x7f"},   {"\xC3\xA4", "\xC3\xA4"},
      {"\xC2\x9B", "\\xc2\\x9b"}, {"\xC2\xA0", "\xC2\xA0"}, {"\xFF\xC2", "\xFF\xC2"},
  };
  for (const auto& [name, escaped] : names) EXPECT_EQ(agent::escape_name(name), escaped);
  EXPECT_EQ(agent::escape_controls("\\\n"), "\\\\n");
  EXPECT_EQ(agent::size_text(1023), "1023 B");
  EXPECT_EQ(agent::size_text(1536), "1.5 KiB");
  EXPECT_EQ(agent::size_text(~0ULL), "16.0 EiB");
  EXPECT_EQ(agent::date_text(0), "1970-01-01 00:00:00");
  EXPECT_EQ(agent::date_text(1773075900), "2026-03-09 17:05:00");
  EXPECT_EQ(agent::duration_text(59.9), "0:59");
  EXPECT_EQ(agent::duration_text(3723), "1:02:03");
  EXPECT_EQ(agent::grouped_text(999), "999");
  EXPECT_EQ(agent::grouped_text(1234567), "1,234,567");
}

TEST_F(Output, Progress) {
  MTF::Event_Handler::Progress now{};
  EXPECT_EQ(agent::progress_text(now, 0), "0 files, 0 B");
  now = {1 << 20, 1, 4 << 20, 5, 90};
  EXPECT_EQ(agent::progress_text(now, 2), "1 file, 1.0 MiB, 25%, 512.0 KiB/s");
  now.done_size = 4 << 20;
  EXPECT_EQ(agent::progress_text(now, 0.5), "1 file, 4.0 MiB, 90%") << "the listing goes on";
  now.percent = 100;
  now.total_size = 1;  // the file grew
  EXPECT_EQ(agent::progress_text(now, 0.5), "1 file, 4.0 MiB, 100%");
}

TEST_F(Output, Events) {
  agent::Job_Events lines(notes_, false), json(notes_, true);
  lines.handle_event(MTF::event_skipped, {{"name", "/\\d\\a\nb"}, {"message", "not\n"}});
  lines.handle_event(MTF::event_corrupt, {{"name", 7}});
  EXPECT_EQ(err_.str(), "skipped: /d/a\\nb: not\ncorrupt: \n");
  EXPECT_EQ(out_.str(), "");
  json.handle_event(MTF::event_corrupt, {{"name", "/\\\xFF"}});
  EXPECT_EQ(
      out_.str(),
      "{\"code\":16777227,\"document\":{\"name\":\"/\xEF\xBF\xBD\",\"name_hex\":\"2fff\"}}\n");
}

TEST_F(Output, LogLinesFromWarningsOn) {
  agent::Job_Log job_log(notes_, true);
  log(job_log, LM_NOTICE, "no\n");
  for (const char* text : {"a\n", "a\n", "a\n", "odd name /\\a\nb\n", "a\n"}) {
    log(job_log, LM_WARNING, text);
  }
  log(job_log, LM_ERROR, "bad\n");
  log(job_log, LM_EMERGENCY, "Unexpected error in f.cpp:1, x is NULL:\n#0 f\n#1 g\n\n");
  notes_.flush();
  notes_.flush();
  EXPECT_EQ(err_.str(),
            "warning: a\nwarning: odd name /a\\nb\nerror: bad\n"
            "error: Unexpected error in f.cpp:1, x is NULL\nwarning: a (3 more times)\n");
}

// The library's lines, with a system path or a native one, and what others of their kind have too.
TEST_F(Output, LogLinesShowNativePaths) {
  platform::Volume_Roots::instance().set("X:", "/x");
  const struct {
    const char* line;
    const char* shown;
    const char* kind;
  } cases[] = {
      {"U path=/\\d\\f, mode=0x11A4", "U path=/d/f, mode=0x11A4", "U path=..., mode=0x11A4"},
      {"S '/\\a, b=c'", "S '/a, b=c'", "S '...'"},
      {"W '/\\d\\it's' is bad, why=x", "W '/d/it's' is bad, why=x", "W '...' is bad, why=x"},
      {"W /\\d, errno=5, Input/output error.", "W /d, errno=5, Input/output error.",
       "W ..., errno=5, Input/output error."},
      {"P of '\\\\?\\X:\\d\xEF\x81\x9C'", "P of '/x/d\\'", "P of '...'"},
      {"P path: X:\\d, and skipp", "P path: /x/d, and skipp", "P path: ..."},
      {"N 'a\\b' of '/d\\ /\\x'", "N 'a\\b' of '/d\\ /\\x'", "N 'a\\b' of '...'"},
      {"V: '/', d: 'Y:'", "V: '/', d: 'Y:'", "V: '...'"},
      {"C: no path", "C: no path", "C: no path"},
  };
  for (const auto& each : cases) {
    const std::string shown = agent::with_native_path(each.line);
    EXPECT_EQ(shown, each.shown);
    EXPECT_EQ(agent::kind_of(shown), each.kind);
  }
  platform::Volume_Roots::instance().clear();
}

TEST_F(Output, EndOfAJob) {
  const struct {
    bool done, canceled;
    unsigned int err_code, corrupt;
    int code;
    const char* line;
  } cases[] = {
      {true, false, 0, 0, agent::exit_done, ""},
      {true, false, 14, 0, agent::exit_skipped, ""},
      {true, false, 0, 1, agent::exit_skipped, ""},
      {true, true, 14, 0, agent::exit_failed, "error: the job was cancelled\n"},
      {false, false, 0, 0, agent::exit_failed, "error: the job failed\n"},
      {false, false, 6, 0, agent::exit_failed, "error: a piece can't be opened: p: why\n"},
      {false, false, 9, 1, agent::exit_failed, "error: writing failed: p: why\n"},
      {false, false, 10, 0, agent::exit_failed, "error: the catalog refused an entry: p: why\n"},
      {false, false, 11, 0, agent::exit_failed, "error: the catalog can't be opened: p: why\n"},
      {false, false, 13, 0, agent::exit_failed,
       "error: all entries were skipped, nothing was saved\n"},
  };
  for (const auto& each : cases) {
    agent::Full_Options options;
    options.json = true;
    agent::Job_Events events(notes_, true);
    for (unsigned int i = 0; i < each.corrupt; ++i) events.handle_event(MTF::event_corrupt, {});
    agent::Full_Result result;
    result.done = each.done;
    result.canceled = each.canceled;
    result.err_code = each.err_code;
    if (each.err_code >= 6 && each.err_code <= 11) result.err_msg = "p: why";
    out_.str("");
    err_.str("");
    EXPECT_EQ(agent::report_full(options, result, events, console_), each.code) << each.line;
    EXPECT_EQ(err_.str(), each.line);
    const json_spirit::Value summary = json_spirit::Value::parse(out_.str()).at("summary");
    EXPECT_EQ(summary.at("exit_code"), each.code);
    EXPECT_EQ(summary.at("corrupt_files"), each.corrupt);
  }
}

TEST_F(Output, AStatusLineMakesRoom) {
  console_.status("1%");
  console_.status("2%");
  console_.line("result");
  console_.note("note");
  EXPECT_EQ(err_.str(), "1%\r\x1b[K2%\r\x1b[Knote\n");
  EXPECT_EQ(out_.str(), "result\n");
  EXPECT_TRUE(console_.finish());
  out_.setstate(std::ios::badbit);
  EXPECT_FALSE(console_.finish());
}

}  // namespace
