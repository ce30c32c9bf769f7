// What reaches the disk, and in which order; and system calls that fail, one by one.
#include <algorithm>
#include <filesystem>

#include "tests/support/agent_run.h"
#include "tests/support/traced.h"

namespace {

namespace fs = std::filesystem;
using namespace test_support;

class System_Calls : public Agent_Run {
 protected:
  void SetUp() override {
    if (!can_trace()) GTEST_SKIP() << "no process may watch another here";
    make_many(source(), 30);
    write_file(source("/large"), std::string(3 << 20, 'x'));
  }

  Output trace(const std::string& calls, const Arguments& command) {
    const Output output = run(traced({"-e", "trace=" + calls}, dir_ / "trace", command));
    calls_ = calls_in(read_file(dir_ / "trace"));
    return output;
  }

  // The last call that starts with `name` and holds `text`.
  Traced_Call last(const std::string& name, const std::string& text) const {
    const auto found = std::find_if(calls_.rbegin(), calls_.rend(), [&](const Traced_Call& call) {
      return call.text.compare(0, name.size() + 1, name + '(') == 0 &&
             call.text.find(text) != std::string::npos;
    });
    if (found != calls_.rend()) return *found;
    ADD_FAILURE() << "no " << name << " of " << text;
    return {};
  }

  void expect_order(const std::vector<Traced_Call>& calls) const {
    for (std::size_t i = 1; i < calls.size(); ++i) {
      EXPECT_LT(calls[i - 1].end, calls[i].begin) << calls[i - 1].text << '\n' << calls[i].text;
    }
  }

  // A fault costs the job, whole: else what it calls done is without a fault.
  void expect_honest(const Output& output, const std::string& fault) {
    if (output.code == 0 || output.code == 3) {
      expect_verified();
      EXPECT_EQ(run(on_storage("remove", {"--seq", "1"})).code, 0) << fault;
    }
    EXPECT_EQ(pieces(), Arguments()) << fault << '\n' << output.err;
  }

  // Runs a job of two channels in which a call of `name` fails in each thread, the one of `fault`.
  Output run_with_fault(const std::string& name, const std::string& fault) const {
    const Arguments options{"-e", "trace=" + name, "-e", "inject=" + name + ":error=" + fault};
    return run(traced(options, "/dev/null", full({"--channels", "2"})));
  }

  // Lets the N-th call of `name` fail, for N from 1 on.
  void fail_each(const std::string& name, const char* error, int most, int step) {
    for (int n = 1; n <= most; n += step) {
      const std::string fault = std::string(error) + ":when=" + std::to_string(n);
      expect_honest(run_with_fault(name, fault), name + ' ' + fault);
    }
    fs::remove_all(dir_ / "tmp");
    EXPECT_EQ(save({"--channels", "2"}).code, 0);
    EXPECT_EQ(run(on_storage("remove", {"--seq", "1"})).code, 0);
  }

  std::vector<Traced_Call> calls_;
};

constexpr const char* writing =
    "mkdirat,write,pwrite64,fsync,fdatasync,rename,renameat,renameat2,unlink,unlinkat,exit_group";

TEST_F(System_Calls, AJobThatIsDoneIsOnTheDisk) {
  for (const char* channels : {"1", "2"}) {
    fs::remove_all(dir_ / "storage");
    ASSERT_EQ(trace(writing, full({"--channels", channels})).code, 0);
    const std::string directory = '<' + (dir_ / "storage") + '>';
    expect_order({last("mkdirat", '"' + (dir_ / "storage") + '"'),
                  last("fsync", '<' + dir_.path() + '>'), last("fdatasync", ".mtf.part")});
    const Arguments names = pieces();
    EXPECT_EQ(names.size(), 2U * (*channels - '0'));
    for (const std::string& name : names) {
      const std::string part = storage(name) + ".part>";
      expect_order({last("write", part), last("fdatasync", part),
                    last("renameat", ", \"" + name + "\")"), last("fsync", directory),
                    last("write", "job 1 of"), last("exit_group", "0")});
      if (name.find(".cat") == std::string::npos) continue;
      expect_order({last("renameat", ".mtf\")"), last("renameat", ", \"" + name + "\")")});
    }
  }
}

TEST_F(System_Calls, AJobThatIsRemovedIsGoneFromTheDisk) {
  ASSERT_EQ(save().code, 0);
  ASSERT_EQ(trace(writing, on_storage("remove", {"--seq", "1"})).code, 0);
  for (const char* name : {"\"demo.1.0.mtf\"", "\"demo.1.0.cat\""}) {
    expect_order({last("unlinkat", name), last("fsync", '<' + (dir_ / "storage") + '>'),
                  last("write", "removed job 1"), last("exit_group", "0")});
  }
}

TEST_F(System_Calls, WhatCannotBeSyncedOrNamedIsNoJob) {
  ASSERT_EQ(save().code, 0);
  ASSERT_EQ(run(on_storage("remove", {"--seq", "1"})).code, 0);
  const std::pair<const char*, int> cases[] = {{"fdatasync", 2}, {"fsync", 1}, {"renameat", 4}};
  for (const auto& [call, most] : cases) {
    for (int n = 1; n <= most; ++n) {
      for (const char* more : {"", "+"}) {
        const std::string fault = "EIO:when=" + std::to_string(n) + more;
        SCOPED_TRACE(call + fault);
        const Output output = run_with_fault(call, fault);
        EXPECT_EQ(output.code, 1);
        EXPECT_NE(output.err.find("error: writing failed: "), std::string::npos) << output.err;
        EXPECT_NE(output.err.find(": Input/output error\n"), std::string::npos) << output.err;
        EXPECT_EQ(pieces(), Arguments());
      }
    }
  }
}

TEST_F(System_Calls, AFailureAtAnyPlaceIsNeverADamagedJob) {
  const int step = is_sanitized ? 7 : 1;
  fail_each("fallocate", "ENOSPC", 6, 1);
  fail_each("ftruncate", "EIO", 3, 1);
  fail_each("close", "EIO", 40, step);
  fail_each("flock", "ENOLCK", 2, 1);
  // The sanitizers write for their own ends and can't do without.
  if (!is_sanitized) fail_each("write", "ENOSPC", 12, 1);
}

}  // namespace
