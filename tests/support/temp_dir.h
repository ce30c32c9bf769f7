// A directory of a test's own, removed with all in it at the end.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/tree.h"

namespace test_support {

class Temp_Dir {
 public:
  Temp_Dir() : path_(testing::TempDir() + "mtf_XXXXXX") {
    if (!::mkdtemp(&path_[0])) ADD_FAILURE() << "no temporary directory " << path_;
  }
  ~Temp_Dir() { platform::remove_tree(path_); }
  Temp_Dir(const Temp_Dir&) = delete;
  Temp_Dir& operator=(const Temp_Dir&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline void write_file(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

inline std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

// All strings of up to `longest` pieces out of `alphabet`.
template <class Alphabet>
std::vector<std::string> all_strings(const Alphabet& alphabet, int longest) {
  std::vector<std::string> all{""};
  std::size_t begin = 0;
  for (int length = 1; length <= longest; ++length) {
    const std::size_t end = all.size();
    for (; begin < end; ++begin) {
      for (const auto& piece : alphabet) all.push_back(all[begin] + piece);
    }
  }
  return all;
}

}  // namespace test_support
