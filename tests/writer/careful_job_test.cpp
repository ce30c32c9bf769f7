// Changes that the dates of files don't show.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <set>

#include "platform/file_clock.h"
#include "tests/support/media_layout.h"
#include "tests/support/test_job.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

constexpr int file_count = 1200;
const fs::file_time_type long_ago = fs::file_time_type::clock::now() - std::chrono::hours(10000);

void write_dated(const std::string& path, const std::string& content) {
  write_file(path, content);
  fs::last_write_time(path, long_ago);
}

// Not one of these can be told by its date.
void edit(const std::string& path, unsigned int kind) {
  const std::string content = read_file(path);
  if (kind == 0) write_dated(path, content + '.');
  if (kind == 1) write_dated(path, std::string(content.size(), '.'));
  if (kind == 2) fs::permissions(path, fs::perms::owner_all);
  if (kind != 3) return;
  write_dated(path + ".new", std::string(content.size(), '*'));
  fs::rename(path + ".new", path);
}

// The files that the catalogs of job `seq` say are on its own medias.
std::multiset<std::string> saved_by(const Test_Job& job, unsigned int seq, unsigned int channels) {
  std::multiset<std::string> names;
  for (unsigned int channel = channels == 1 ? 0 : 1; channel <= channels; ++channel) {
    if (channels == 1 && channel == 1) break;
    const std::string all =
        job.storage.bytes("j." + std::to_string(seq) + '.' + std::to_string(channel) + ".cat");
    for (std::size_t at = all.find("VOLB") - 2; at < all.size(); at += get_le(all, at, 2)) {
      const std::string text = entry_text(all.substr(at, get_le(all, at, 2)));
      if (text.rfind("FILE ", 0) != 0) continue;
      EXPECT_EQ(get_le(all, at + 40, 2), 0U) << "flags of " << text;
      if (get_le(all, at + 6, 2) == seq) names.insert(text.substr(5));
    }
  }
  return names;
}

class Careful_Job : public testing::Test {
 protected:
  // Files with dates of old, and a second between them and what comes.
  Careful_Job() {
    for (int i = 0; i < file_count; ++i) write_dated(path(i), std::to_string(i));
    pass_a_second();
  }

  static void pass_a_second() {
    const long long second = platform::file_clock_second();
    while (platform::file_clock_second() == second) ::usleep(1000);
  }

  static std::string name(int i) { return 'f' + std::to_string(i); }
  std::string path(int i) const { return dir_ / name(i); }

  const Temp_Dir dir_;
};

TEST_F(Careful_Job, SavesAThousandEditsBehindTheEarlierJob) {
  std::mt19937 random(13);
  for (const unsigned int channels : {1U, 3U}) {
    Test_Job base, next;
    base.backup.careful(true);
    next.backup.careful(true);
    next.threads = channels == 1 ? 1 : 4;
    ASSERT_TRUE(base.run(dir_.path(), channels)) << base.log->text();
    std::multiset<std::string> edited;
    while (edited.size() < 1000) {
      const int i = static_cast<int>(random() % file_count);
      if (edited.count(name(i)) != 0) continue;
      edit(path(i), random() % 4);
      edited.insert(name(i));
    }
    ASSERT_TRUE(next.run_second(dir_.path(), base.storage.pieces, channels)) << next.log->text();
    EXPECT_EQ(saved_by(next, 2, channels), edited);
    pass_a_second();
  }
}

// Nobody knows what its dates hide. Both noted a second, or would have if they had been careful.
TEST_F(Careful_Job, SavesAllBehindABaseThatTellsNoSecondBeforeItsOwn) {
  for (const bool late : {false, true}) {
    Test_Job base, next;
    base.backup.careful(late);
    next.backup.careful(true);
    ASSERT_TRUE(base.run(dir_.path()));
    auto pieces = base.storage.pieces;
    std::string& catalog = pieces["j.1.0.cat"];
    if (late) catalog[catalog.find("\"began\":") + 8] = '9';
    ASSERT_TRUE(next.run_second(dir_.path(), pieces)) << next.log->text();
    EXPECT_EQ(saved_by(next, 2, 1).size(), static_cast<std::size_t>(file_count));
    EXPECT_EQ(next.log->count("32 It isn't known when job 1 began, all files are saved anew\n"), 1);
  }
}

}  // namespace
