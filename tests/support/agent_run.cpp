#include "tests/support/agent_run.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>

#include "agent/text.h"
#include "platform/storage_directory.h"

namespace test_support {
namespace {

namespace fs = std::filesystem;

// An entry may be missing if a line of the job ends with its path, quoted or in front of a reason.
bool is_named(const std::string& errors, const std::string& path) {
  const std::string name = agent::escape_name(path);
  return errors.find(" '" + name + "'\n") != std::string::npos ||
         errors.find(": " + name + ": ") != std::string::npos;
}

// A directory that is named stands for all that it holds.
bool is_named_or_below(const std::string& errors, std::string path) {
  for (; !path.empty(); path.resize(path.rfind('/'))) {
    if (is_named(errors, path)) return true;
  }
  return false;
}

// The escaped paths in the output of `list`.
std::multiset<std::string> listed_paths(const std::string& output) {
  constexpr std::size_t path_column = 47;
  std::multiset<std::string> paths;
  for (const std::string& line : lines_of(output)) {
    // Behind the path of a link stands what it leads to.
    const std::size_t end = line.compare(0, 7, "symlink") == 0    ? line.find(" -> ")
                            : line.compare(0, 8, "hardlink") == 0 ? line.find(" link to ")
                                                                  : line.size();
    paths.insert(line.substr(path_column, end - path_column));
  }
  return paths;
}

// What of the source came back; the entries that didn't must be named.
Snapshot without_named(const Snapshot& expected, const Snapshot& found, const std::string& top,
                       const std::string& errors) {
  Snapshot left;
  for (const auto& entry : expected) {
    const bool gone = found.find(entry.first) == found.end();
    if (!gone || !is_named_or_below(errors, top + entry.first)) left.insert(entry);
  }
  return left;
}

}  // namespace

Agent_Run::Agent_Run() {
  fs::create_directory(dir_ / "source");
}

void Agent_Run::use_storage(const std::string& kind) {
  if (kind == "directory") return;
  const std::string config = dir_ / "rclone.conf";
  // A word of the tests, as rclone wants it.
  const std::string password = "yh1kz4C_c6lF7xnSmd4woVkvA-PpovciXUWZH1rmE6-mEwk";
  write_file(config, "[remote]\ntype = alias\nremote = " + dir_.path() +
                         "\n[encrypted]\ntype = crypt\nremote = " + dir_.path() +
                         "\ndirectory_name_encryption = false\npassword = " + password + '\n');
  ::setenv("RCLONE_CONFIG", config.c_str(), 1);
  storage_text_ = "rclone:" + kind + ":storage";
}

Arguments agent(const Arguments& more) {
  Arguments all{MTF_AGENT};
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

Arguments Agent_Run::on_storage(const std::string& command, const Arguments& more) const {
  Arguments all = agent({command, "--storage", storage_text(), "--name", "demo"});
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

Arguments Agent_Run::full(const Arguments& more, const std::string& command) const {
  Arguments all = on_storage(command, {"--tmp", dir_ / "tmp", "--no-careful"});
  if (std::find(more.begin(), more.end(), "--source") == more.end()) {
    all.insert(all.end(), {"--source", source()});
  }
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

Output Agent_Run::restore(const std::string& to, const Arguments& more) const {
  Arguments all = on_storage("restore", {"--to", dir_ / to});
  all.insert(all.end(), more.begin(), more.end());
  return run(all);
}

Arguments Agent_Run::pieces() const {
  if (storage_text().find(":encrypted:") != std::string::npos) {
    Arguments names = lines_of(run({"/usr/bin/env", "rclone", "lsf", "encrypted:storage"}).out);
    std::sort(names.begin(), names.end());
    return names;
  }
  platform::Storage_Directory directory;
  Arguments names;
  if (!directory.open(dir_ / "storage", false) || !directory.names(names)) return {};
  names.erase(std::remove(names.begin(), names.end(), ".demo.lock"), names.end());
  std::sort(names.begin(), names.end());
  return names;
}

void Agent_Run::expect_verified(const Arguments& more) const {
  const Output verified = run(on_storage("verify", more));
  EXPECT_EQ(verified.code, 0) << verified.out << verified.err;
  EXPECT_NE(verified.out.find(" of 'demo': 0 faults"), std::string::npos) << verified.out;
}

void Agent_Run::expect_restored(const Snapshot& before, const std::string& top,
                                const std::string& errors, const Arguments& more) const {
  const Snapshot after = snapshot((dir_ / "to") + top);
  const Snapshot expected = without_named(before, after, top, errors);
  EXPECT_EQ(difference(expected, after), "");
  const Output listed = run(on_storage("list", more));
  EXPECT_EQ(listed.code, 0) << listed.err;
  const std::multiset<std::string> paths = listed_paths(listed.out);
  for (const auto& entry : expected) {
    const std::string path = agent::escape_name(top + entry.first);
    EXPECT_EQ(paths.count(path), 1U) << path.substr(0, 300);
  }
}

void Agent_Run::expect_round_trip(const Arguments& how, const Arguments& sources, int code) {
  Arguments arguments = how;
  arguments.emplace_back("--verbose");
  std::vector<Snapshot> before;
  for (const std::string& each : sources) {
    arguments.insert(arguments.end(), {"--source", each});
    before.push_back(snapshot(each));
  }
  const Output saved = save(arguments);
  ASSERT_EQ(saved.code, code) << saved.err.substr(0, 4000);
  EXPECT_EQ(saved.out.compare(0, 16, "job 1 of 'demo':"), 0) << saved.out;
  EXPECT_TRUE(fs::is_empty(dir_ / "tmp"));
  expect_verified();
  const Output restored = restore("to");
  EXPECT_EQ(restored.code, 0) << restored.err.substr(0, 4000);
  for (std::size_t i = 0; i < sources.size(); ++i) {
    expect_restored(before[i], sources[i], saved.err);
  }
}

bool Agent_Run::has_unfinished_piece() const {
  const Arguments names = pieces();
  return std::any_of(names.begin(), names.end(), [](const std::string& name) {
    return name.find(".mtf.part") != std::string::npos ||
           name.find(".unfinished") != std::string::npos;
  });
}

void make_endless(const std::string& path) {
  write_file(path, "");
  fs::resize_file(path, std::uintmax_t{4} << 40);
}

std::vector<std::string> lines_of(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace test_support
