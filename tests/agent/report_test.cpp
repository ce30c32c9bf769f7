// The page about a chain of jobs.
#include <gtest/gtest.h>

#include <filesystem>

#include "agent/report_page.h"
#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class Report : public Agent_Run {
 protected:
  Output report(const Arguments& more = {}) const {
    Arguments all = on_storage("report", {"--html", dir_ / "page.html"});
    all.insert(all.end(), more.begin(), more.end());
    return run(all);
  }

  std::string page() const { return read_file(dir_ / "page.html"); }

  static std::size_t count(const std::string& text, const std::string& part) {
    std::size_t found = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++found;
    return found;
  }

  // Two jobs of a tree with names that would be markup; the later one saved 5000 bytes more.
  void save_hostile() {
    const std::string names[] = {
        "<script>document.title='bad'<"
        "\xE2\x88\x95script>",
        "&lt;b&gt; \"' onload=x",
        "]]><!-- --",
        "\xE2\x80\xAE"
        "txt.exe",
        "\xFF\xC3(",
        "line\nbreak\x1B[2J",
        std::string(250, 'w')};
    for (const std::string& name : names) {
      fs::create_directory(source('/' + name));
      write_file(source('/' + name + '/' + name), std::string(1000, 'x'));
    }
    ASSERT_EQ(save().code, 0);
    write_file(source("/new"), std::string(5000, 'n'));
    ASSERT_EQ(save({}, "incremental").code, 0);
  }
};

TEST_F(Report, NoNameIsMarkup) {
  ASSERT_NO_FATAL_FAILURE(save_hostile());
  const Output made = report();
  ASSERT_EQ(made.code, 0) << made.err;
  const std::string text = page();
  EXPECT_EQ(count(text, "<script"), 0U);
  EXPECT_EQ(count(text, "<b>"), 2U) << "one for each job";
  EXPECT_EQ(count(text, "<!--"), 0U);
  EXPECT_EQ(text.find("http:"), std::string::npos);
  EXPECT_EQ(text.find("\x1B"), std::string::npos);
  EXPECT_NE(text.find("&lt;script&gt;document.title"), std::string::npos);
  EXPECT_NE(text.find("&amp;lt;b&amp;gt;"), std::string::npos);
  EXPECT_NE(text.find("\xEF\xBF\xBD\xEF\xBF\xBD("), std::string::npos);
  EXPECT_NE(text.find("saved 4.9 KiB of 11.7 KiB; needs job 1"), std::string::npos);
  EXPECT_NE(text.find("What grew from job 1 to job 2"), std::string::npos);
  EXPECT_EQ(fs::status(dir_ / "page.html").permissions(), fs::perms(0600));
  EXPECT_EQ(report({"--seq", "7"}).err, "error: there is no job 7 of 'demo'\n");
  fs::resize_file(storage("demo.1.0.cat"), fs::file_size(storage("demo.1.0.cat")) - 10);
  fs::remove(storage("demo.2.0.mtf"));
  ASSERT_EQ(report().code, 0);
  EXPECT_NE(page().find("Job 1: demo.1.0.cat:"), std::string::npos);
  EXPECT_NE(page().find("Job 2: pieces of it are missing"), std::string::npos);
}

// Errors of the page show in the browser's log; a script that ran would change the title.
TEST_F(Report, InABrowser) {
  if (run({"/bin/sh", "-c", "command -v chromium"}).code != 0) {
    GTEST_SKIP() << "there is no chromium here: the page wasn't opened in a browser";
  }
  ASSERT_NO_FATAL_FAILURE(save_hostile());
  ASSERT_EQ(report().code, 0);
  const Output shown = run({"/usr/bin/env", "HOME=" + dir_.path(), "chromium", "--headless",
                            "--no-sandbox", "--disable-gpu", "--enable-logging=stderr", "--v=0",
                            "--user-data-dir=" + (dir_ / "profile"), "--dump-dom",
                            "file://" + (dir_ / "page.html")});
  EXPECT_EQ(shown.code, 0) << shown.err;
  EXPECT_EQ(shown.err.find("CONSOLE"), std::string::npos) << shown.err;
  EXPECT_NE(shown.out.find("<title>Jobs of demo</title>"), std::string::npos) << shown.out;
  EXPECT_EQ(count(shown.out, "<h2>"), count(page(), "<h2>"));
  EXPECT_EQ(count(shown.out, "<tr>"), count(page(), "<tr>"));
}

}  // namespace
