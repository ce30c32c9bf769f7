// Trees of random shape and names.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

namespace test_support {

class Random_Tree {
 public:
  // Fills the directory `top`. `dirs` are all native paths of directories that were made, `files`
  // those of all else.
  Random_Tree(const std::string& top, unsigned int seed) : random_(seed) { fill(top, 4); }

  std::vector<std::string> dirs;
  std::vector<std::string> files;

 private:
  unsigned int below(unsigned int n) { return static_cast<unsigned int>(random_() % n); }

  // Few letters, so that names are prefixes of one another, and bytes on both sides of a backslash.
  std::string name() {
    static const char* const pieces[] = {"a", "b", ".", "a.", "]", "\xFF", "\\", "\x01", " "};
    std::string text = "a";
    for (unsigned int n = below(4); n > 0; --n) text += pieces[below(std::size(pieces))];
    return text;
  }

  void fill(const std::string& dir, int levels) {
    for (unsigned int n = below(12); n > 0; --n) add_file(dir + "/" + name());
    if (levels == 0) return;
    for (unsigned int n = below(5); n > 0; --n) {
      const std::string path = dir + "/" + name();
      if (::mkdir(path.c_str(), 0755) != 0) continue;
      dirs.push_back(path);
      fill(path, levels - 1);
    }
  }

  void add_file(const std::string& path) {
    struct stat st;
    if (::lstat(path.c_str(), &st) == 0) return;
    const unsigned int kind = below(8);
    if (kind == 0) {
      if (::symlink("/", path.c_str()) != 0) return;
    } else if (kind == 1 && !files.empty()) {
      if (::link(files[below(static_cast<unsigned int>(files.size()))].c_str(), path.c_str()) !=
          0) {
        return;
      }
    } else if (kind == 2) {
      if (::mkfifo(path.c_str(), 0644) != 0) return;
    } else {
      write_file(path, std::string(below(50), 'x'));
    }
    files.push_back(path);
  }

  std::mt19937 random_;
};

}  // namespace test_support
