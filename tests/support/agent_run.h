// A source, a storage and the program on them.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/file_tree.h"
#include "tests/support/process.h"
#include "tests/support/temp_dir.h"

namespace test_support {

// A directory of the test's own with `source` in it; jobs go to `storage` under the name demo, with
// their working files in `tmp`.
class Agent_Run : public testing::Test {
 protected:
  Agent_Run();

  // Jobs go to another kind of storage from now on: "remote", the directory `storage` through
  // rclone, or "encrypted", which hides names and content in it; "directory" is the usual one.
  void use_storage(const std::string& kind);

  // The value of --storage.
  const std::string& storage_text() const { return storage_text_; }

  std::string source(const std::string& path = {}) const { return dir_ / "source" + path; }
  std::string storage(const std::string& name = {}) const { return dir_ / "storage/" + name; }

  // What is restored of the source into `to`.
  std::string back(const std::string& path = {}) const { return dir_ / "to" + source(path); }

  // Arguments of a command on the storage, with `more` behind.
  Arguments on_storage(const std::string& command, const Arguments& more = {}) const;
  // Those of a job of the source, if `more` names no other. It goes by the dates of files alone:
  // with those that were made just now a careful one would take nothing over.
  Arguments full(const Arguments& more = {}, const std::string& command = "full") const;
  Output restore(const std::string& to, const Arguments& more = {}) const;

  // Saves the source, whatever comes of it.
  Output save(const Arguments& more = {}, const std::string& command = "full") const {
    return run(full(more, command));
  }

  // The names on the storage, but for that of the lock, sorted.
  Arguments pieces() const;

  void expect_verified(const Arguments& more = {}) const;

  // Everything that was in `top` is in `to` and in the list, once, or is named in a line of the
  // job's `errors`, which is then its only trace.
  void expect_restored(const Snapshot& before, const std::string& top, const std::string& errors,
                       const Arguments& more = {}) const;

  // Saves, verifies, lists and restores.
  void expect_round_trip(const Arguments& how, const Arguments& sources, int code);

  // True once a job that is under way has a piece on the storage.
  bool has_unfinished_piece() const;

  Temp_Dir dir_;

 private:
  std::string storage_text_ = dir_ / "storage";
};

// For tests that are run on each kind of storage.
template <class Test>
class On_Each_Storage : public Test, public testing::WithParamInterface<const char*> {
 protected:
  On_Each_Storage() { this->use_storage(GetParam()); }
};

// The program, with more arguments behind.
Arguments agent(const Arguments& more);

// A file of 4 TiB without a byte in it: no job comes to its end while a test looks on.
void make_endless(const std::string& path);

std::vector<std::string> lines_of(const std::string& text);

}  // namespace test_support
