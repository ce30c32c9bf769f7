// What the program prints for people and for programs.
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <set>

#include "services/json_spirit.h"
#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;
using json_spirit::Value;

class Program_Output : public Agent_Run {
 protected:
  Program_Output() {
    write_file(source("/a"), std::string(100000, 'a'));
    write_file(source("/b\xFF"), "b");
    EXPECT_EQ(make_socket(source("/socket").c_str()), 0);
    ::chmod(source("/socket").c_str(), 0644);
  }
};

// The keys of each event's document, those that may be missing in brackets.
const std::map<int, std::set<std::string>> event_keys = {
    {0x1000004, {"result", "name", "[channel]", "[message]"}},
    {0x1000005, {"result", "name"}},
    {0x1000006,
     {"vol_count", "dir_count", "file_count", "total_size", "inc_size", "storage_size",
      "inc_file_count", "skipped_dirs", "skipped_files"}},
    {0x100000A, {"type", "name", "errno", "message"}},
};

// The events in their order; the last line, which is the summary, goes to `summary`.
std::vector<Value> events_of(const Output& output, Value& summary) {
  std::vector<Value> events;
  for (const std::string& line : lines_of(output.out)) events.push_back(Value::parse(line));
  summary = events.back().at("summary");
  EXPECT_EQ(events.back().size(), 1U);
  events.pop_back();
  for (const Value& event : events) {
    EXPECT_EQ(event.size(), 2U) << event;
    std::set<std::string> missing = event_keys.at(event.at("code"));
    for (const auto& item : event.at("document").items()) {
      EXPECT_EQ(missing.erase(item.key()) + missing.erase('[' + item.key() + ']'), 1U) << event;
    }
    for (const std::string& key : missing) EXPECT_EQ(key[0], '[') << key << " of " << event;
  }
  return events;
}

std::multiset<std::string> names_of(const std::vector<Value>& events, int code) {
  std::multiset<std::string> names;
  for (const Value& event : events) {
    if (event.at("code") == code) names.insert(event.at("document").at("name"));
  }
  return names;
}

TEST_F(Program_Output, EventsAsJson) {
  const Output output = save({"--json", "--channels", "2"});
  EXPECT_EQ(output.code, 0) << output.err;
  Value summary;
  const std::vector<Value> events = events_of(output, summary);
  const std::multiset<std::string> tasks{"backup", "backup", "full_source_producer",
                                         "source_sharding"};
  EXPECT_EQ(names_of(events, 0x1000004), tasks);
  EXPECT_EQ(names_of(events, 0x1000005).size(), 2U) << "the two tasks of the sources";
  EXPECT_EQ(names_of(events, 0x100000A).size(), 1U);
  EXPECT_EQ(events.back().at("code"), 0x1000006);
  EXPECT_EQ(events.back().at("document").at("inc_file_count"), 2);
  EXPECT_EQ(summary.at("seq"), 1);
  EXPECT_EQ(summary.at("exit_code"), 0);
  EXPECT_EQ(summary.at("inc_file_count"), 2);
}

TEST_F(Program_Output, FailureAsJson) {
  Limits limits;
  limits.file_size = 1 << 20;
  write_file(source("/big"), std::string(3 << 20, 'b'));
  const Output output = run(full({"--json"}), limits);
  EXPECT_EQ(output.code, 1);
  Value summary;
  const std::vector<Value> events = events_of(output, summary);
  EXPECT_EQ(names_of(events, 0x1000006).size(), 0U) << "a job that failed has no summary event";
  EXPECT_EQ(summary.at("exit_code"), 1);
  EXPECT_EQ(summary.at("err_code"), 9);
}

TEST_F(Program_Output, PlainLinesWhereThereIsNoTerminal) {
  const Output output = save({"--threads", "2"});
  EXPECT_EQ((output.out + output.err).find_first_of("\r\x1b"), std::string::npos);
  EXPECT_EQ(output.err, "skipped: " + source("/socket") + ": Unsupported file type\n");
  EXPECT_EQ(lines_of(output.out).size(), 1U) << output.out;
  EXPECT_NE(output.out.find(", 97.7 KiB saved, "), std::string::npos) << "the bytes of the content";
  const Output next = save({"--threads", "2"}, "incremental");
  EXPECT_EQ(next.err, output.err);
  EXPECT_NE(next.out.find(", 0 B saved, "), std::string::npos) << next.out;
  fs::remove(source("/socket"));
  const Output quiet = save({"--quiet"});
  EXPECT_EQ(quiet.code, 0);
  EXPECT_EQ(quiet.out + quiet.err, "");
}

TEST_F(Program_Output, TenOfAKind) {
  for (char c = 'a'; c < 'm'; ++c) ASSERT_EQ(::mkfifo((source("/f") + c).c_str(), 0644), 0);
  EXPECT_EQ(lines_of(save({"--no-links", "--threads", "2"}).err).size(), 11U);
  const std::string err = save({"--no-links", "--threads", "2"}, "incremental").err;
  const std::string last = "... and 3 more: skipped: ...: Unsupported file type\n";
  EXPECT_EQ(err.substr(err.size() - last.size()), last);
  EXPECT_EQ(lines_of(save({"--no-links", "--verbose"}, "incremental").err).size(), 13U);
  const Output json = save({"--no-links", "--json"}, "incremental");
  EXPECT_EQ(json.err, "");
  EXPECT_NE(json.out.find("\"name\":\"" + source("/socket")), std::string::npos) << json.out;
}

TEST_F(Program_Output, ListAsJson) {
  ASSERT_EQ(save().code, 0);
  const Output listed = run(on_storage("list", {"--json"}));
  std::multiset<std::string> types;
  for (const std::string& line : lines_of(listed.out)) {
    const Value entry = Value::parse(line);
    types.insert(entry.at("type"));
    const bool is_a = entry.at("path") == source("/a");
    EXPECT_EQ(entry.at("size") == 100000, is_a) << line;
  }
  EXPECT_EQ(types.count("file"), 2U);
  EXPECT_EQ(types.count("volume"), 1U);
}

// No file of the job's own gets the number of a handle that was closed, and what is printed there.
TEST_F(Program_Output, ClosedStandardHandles) {
  struct {
    const char* closed;
    const char* pre_action;
    int code;
  } cases[] = {
      {"<&-", "", 0},      {"<&-", "--pre-action -", 1}, {">&-", "", 1},          {"2>&-", "", 0},
      {"<&- 2>&-", "", 0}, {"<&- >&-", "", 1},           {"<&- >&- 2>&-", "", 1},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.closed);
    const Output output = run({"/bin/sh", "-c",
                               "exec '" MTF_AGENT "' full --source '" + source() + "' --storage '" +
                                   (dir_ / "storage") + "' --name demo --tmp '" + (dir_ / "tmp") +
                                   "' " + each.pre_action + ' ' + each.closed});
    EXPECT_EQ(output.code, each.code) << output.err;
    EXPECT_EQ(output.out.empty(), each.code != 0) << output.out;
    EXPECT_EQ(run(on_storage("verify")).code, 0);
    EXPECT_EQ(read_file(storage(".demo.lock")), "");
  }
}

TEST_F(Program_Output, RefusalAsJson) {
  write_file(dir_ / "file", "");
  const struct {
    Arguments more;
    int code;
    std::string message;
  } cases[] = {
      {{"--source", "/none"}, 1, "the source '/none': No such file or directory"},
      {{"--pre-action", dir_ / "none"}, 1, (dir_ / "none") + ": No such file or directory"},
      {{"--exclude", "/"}, 2, "--exclude '/' leaves nothing of the source '" + source() + "'"},
  };
  for (const auto& each : cases) {
    Arguments arguments = full(each.more);
    arguments.push_back("--json");
    const Output output = run(arguments);
    EXPECT_EQ(output.code, each.code);
    Value summary;
    EXPECT_TRUE(events_of(output, summary).empty());
    EXPECT_EQ(summary.at("name"), "demo");
    EXPECT_EQ(summary.at("exit_code"), each.code);
    EXPECT_EQ(summary.at("message"), each.message);
    EXPECT_EQ(summary.at("skipped_files"), 0);
  }
}

TEST_F(Program_Output, AJobThatIsThereIsNamedWhereTheOutputIsLost) {
  for (const char* option : {"", " --json"}) {
    const Output output = run({"/bin/sh", "-c",
                               "exec '" MTF_AGENT "' full --source '" + source("/a") +
                                   "' --storage '" + (dir_ / "storage") + "' --name demo --tmp '" +
                                   (dir_ / "tmp") + "' >/dev/full" + option});
    EXPECT_EQ(output.code, 1);
    EXPECT_EQ(output.err, std::string("job ") + (*option == '\0' ? "1" : "2") +
                              " of 'demo' is saved\nerror: the output could not be written\n");
  }
  EXPECT_EQ(pieces().size(), 4U);
}

TEST_F(Program_Output, TheFirstDateIsADate) {
  const struct timespec times[2] = {{0, 0}, {0, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, source("/a").c_str(), times, 0), 0);
  ASSERT_EQ(save().code, 0);
  const std::string listed = run(on_storage("list")).out;
  EXPECT_NE(listed.find("  1970-01-01 00:00:00  " + source("/a") + '\n'), std::string::npos)
      << listed;
  EXPECT_NE(listed.find("  -                    /\n"), std::string::npos) << listed;
}

}  // namespace
