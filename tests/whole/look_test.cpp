// Finding a name in jobs, and what changed between them.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class Looking : public Agent_Run {
 protected:
  // Between two full jobs one file of each kind changes; `turned` becomes a directory.
  Looking() {
    fs::create_directories(source("/d/e"));
    make_link("one");
    for (const char* name : {"/same", "/d/bytes", "/d/longer", "/d/mode", "/gone", "/turned"}) {
      write_file(source(name), "one");
      fs::last_write_time(source(name), {});
    }
    fs::create_hard_link(source("/d/bytes"), source("/name"));
    EXPECT_EQ(save().code, 0);
    make_link("two");
    write_file(source("/d/bytes"), "two");
    write_file(source("/d/longer"), "longer");
    write_file(source("/d/e/new"), "new");
    ::chmod(source("/d/mode").c_str(), 0600);
    ::chmod(source("/d/e").c_str(), 0700);
    fs::remove(source("/gone"));
    fs::remove(source("/turned"));
    fs::create_directory(source("/turned"));
    fs::create_hard_link(source("/same"), source("/a"));
    for (const char* name : {"/d/bytes", "/d/longer"}) fs::last_write_time(source(name), {});
    EXPECT_EQ(save().code, 0);
    EXPECT_EQ(save({}, "incremental").code, 0);
  }

  void make_link(const char* target) {
    const timespec times[2] = {};
    ::unlink(source("/link").c_str());
    fs::create_symlink(target, source("/link"));
    ::utimensat(AT_FDCWD, source("/link").c_str(), times, AT_SYMLINK_NOFOLLOW);
  }

  // The lines of an output without the source's own path.
  Arguments short_lines(const Output& output) const {
    EXPECT_EQ(output.err, "");
    Arguments lines = lines_of(output.out);
    for (std::string& line : lines) {
      const std::size_t at = line.find(source());
      if (at != std::string::npos) line.erase(at, source().size());
    }
    return lines;
  }
};

TEST_F(Looking, AtWhatChanged) {
  const Output output = run(on_storage("diff", {"1", "2"}));
  EXPECT_EQ(output.code, 0);
  Arguments lines = short_lines(output);
  EXPECT_EQ(lines.back().substr(0, 75),
            "2 added, 1 removed, 8 changed (4 in content, 2 in attributes, 1 in links), ")
      << lines.back();
  lines.pop_back();
  const Arguments wanted = {
      "A  file                          /a",        "M  hardlink  content             /d/bytes",
      "M  dir       attributes          /d/e",      "A  file                          /d/e/new",
      "M  file      content             /d/longer", "M  file      attributes          /d/mode",
      "D  file                          /gone",     "M  symlink   content             /link",
      "M  file      content             /name",     "M  hardlink  links               /same",
      "M  dir       was file            /turned"};
  EXPECT_EQ(lines, wanted);
  EXPECT_EQ(lines_of(run(on_storage("diff", {"2", "3"})).out).size(), 1u);
  const Arguments quick = short_lines(run(on_storage("diff", {"1", "2", "--quick"})));
  EXPECT_EQ(quick.size(), 7u) << testing::PrintToString(quick);
}

TEST_F(Looking, ForANameAndInADirectory) {
  const Arguments found = short_lines(run(on_storage("find", {"b?tes", "*/d/mode"})));
  ASSERT_EQ(found.size(), 5u) << testing::PrintToString(found);
  EXPECT_EQ(found[1].substr(0, 18), "1                1");
  EXPECT_EQ(found[2].substr(0, 18), "2-3              2");
  EXPECT_EQ(run(on_storage("find", {"nothing"})).code, 1);

  const Arguments listed = short_lines(run(on_storage("list", {source("/d"), "--depth", "1"})));
  EXPECT_EQ(listed.size(), 5u) << testing::PrintToString(listed);
  EXPECT_EQ(run(on_storage("list", {"--depth", "0"})).out.substr(0, 6), "volume");
  EXPECT_EQ(run(on_storage("list", {source("/gone")})).code, 1);
}

}  // namespace
