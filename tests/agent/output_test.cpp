#include <gtest/gtest.h>

#include <ace/Log_Record.h>
#include <ace/Time_Value.h>

#include <sstream>

#include "agent/exit_code.h"
#include "agent/full_report.h"
#include "agent/job_events.h"
#include "agent/job_log.h"
#include "agent/progress.h"
#include "agent/text.h"

namespace {

class Output : public testing::Test {
 protected:
  std::ostringstream out_, err_;
  agent::Console console_{out_, err_};
};

TEST(Text, NamesOnOneLine) {
  const struct {
    const char *name, *escaped;
  } cases[] = {
      {"/a b", "/a b"},           {"a\nb", "a\\nb"},        {"a\\nb", "a\\\\nb"},
      {"\x1b[2J", "\\x1b[2J"},    {"\t\x7f", "\\t\\x7f"},   {"\xC3\xA4", "\xC3\xA4"},
      {"\xC2\x9B", "\\xc2\\x9b"}, {"\xC2\xA0", "\xC2\xA0"}, {"\xFF\xC2", "\xFF\xC2"},
  };
  for (const auto& each : cases) EXPECT_EQ(agent::escape_name(each.name), each.escaped);
  EXPECT_EQ(agent::escape_controls("\\\n"), "\\\\n");
}

TEST(Text, SizesAndDates) {
  EXPECT_EQ(agent::size_text(0), "0 B");
  EXPECT_EQ(agent::size_text(1023), "1023 B");
  EXPECT_EQ(agent::size_text(1536), "1.5 KiB");
  EXPECT_EQ(agent::size_text(~0ULL), "16.0 EiB");
  EXPECT_EQ(agent::date_text(0), "1970-01-01 00:00:00");
  EXPECT_EQ(agent::date_text(1773075900), "2026-03-09 17:05:00");
  EXPECT_EQ(agent::date_text(-1), "1969-12-31 23:59:59");
  EXPECT_EQ(agent::duration_text(59.9), "0:59");
  EXPECT_EQ(agent::duration_text(3723), "1:02:03");
}

TEST(Progress_Text, SaysWhatIsKnown) {
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

TEST_F(Output, EventsAsLines) {
  agent::Job_Events events(console_, false);
  events.handle_event(MTF::event_skipped, {{"type", "file"},
                                           {"name", "/\\d\\a\nb"},
                                           {"errno", 13},
                                           {"message", "Permission denied\n"}});
  events.handle_event(MTF::event_corrupt, {{"name", 7}});
  events.handle_event(MTF::event_task_made, {{"name", "backup"}});
  EXPECT_EQ(out_.str(), "");
  EXPECT_EQ(err_.str(), "skipped: /d/a\\nb: Permission denied\ncorrupt: \n");
  EXPECT_EQ(events.corrupt(), 1U);
}

TEST_F(Output, EventsAsJson) {
  agent::Job_Events events(console_, true);
  events.handle_event(MTF::event_corrupt, {{"name", "/\\\xFF"}, {"message", "x"}});
  EXPECT_EQ(
      out_.str(),
      "{\"code\":16777227,\"document\":{\"message\":\"x\",\"name\":\"/\\\\\xEF\xBF\xBD\"}}\n");
  EXPECT_EQ(err_.str(), "");
}

TEST_F(Output, LogLinesFromWarningsOn) {
  agent::Job_Log log(console_, true);
  const struct {
    ACE_Log_Priority priority;
    const char *text, *line;
  } cases[] = {
      {LM_DEBUG, "no\n", ""},
      {LM_NOTICE, "no\n", ""},
      {LM_WARNING, "odd name /\\a\nb\n", "warning: odd name /\\a\\nb\n"},
      {LM_ERROR, "bad\n", "error: bad\n"},
      {LM_EMERGENCY, "Unexpected error in f.cpp:1, x is NULL:\n#0 f\n#1 g\n\n",
       "error: Unexpected error in f.cpp:1, x is NULL\n"},
  };
  for (const auto& each : cases) {
    log.flush();
    err_.str("");
    ACE_Log_Record record(each.priority, ACE_Time_Value::zero, 0);
    record.msg_data(each.text);
    log.log(record);
    EXPECT_EQ(err_.str(), each.line);
  }
}

TEST_F(Output, RepeatedLogLinesAreCounted) {
  agent::Job_Log log(console_, true);
  for (const char* text : {"a\n", "a\n", "a\n", "b\n", "a\n", "a\n"}) {
    ACE_Log_Record record(LM_WARNING, ACE_Time_Value::zero, 0);
    record.msg_data(text);
    log.log(record);
  }
  log.flush();
  log.flush();
  EXPECT_EQ(err_.str(), "warning: a\nwarning: b\nwarning: a (4 more times)\n");
}

TEST_F(Output, EndOfAJob) {
  const struct {
    bool done, canceled;
    unsigned int err_code;
    unsigned int corrupt;
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
    agent::Job_Events events(console_, false);
    for (unsigned int i = 0; i < each.corrupt; ++i) events.handle_event(MTF::event_corrupt, {});
    agent::Full_Result result;
    result.done = each.done;
    result.canceled = each.canceled;
    result.err_code = each.err_code;
    if (each.err_code >= 6 && each.err_code <= 11) result.err_msg = "p: why";
    out_.str("");
    err_.str("");
    EXPECT_EQ(agent::report_full(options, result, events, console_), each.code) << each.line;
    const std::string lines = err_.str();
    EXPECT_EQ(lines.substr(lines.find("error:") == std::string::npos ? lines.size()
                                                                     : lines.find("error:")),
              each.line);
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
