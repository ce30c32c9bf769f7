// File trees that are hard to save, and what is to come back of them.
#pragma once

#include <map>
#include <string>

namespace test_support {

// A directory held open, in which paths stay short however deep it lies.
class Held_Dir {
 public:
  explicit Held_Dir(const std::string& path);
  Held_Dir(const Held_Dir& parent, const std::string& name);  // made if it is missing
  ~Held_Dir();
  Held_Dir(const Held_Dir&) = delete;
  Held_Dir& operator=(const Held_Dir&) = delete;

  int fd() const { return fd_; }
  void write(const std::string& name, const std::string& content) const;
  void set(const std::string& name, unsigned int mode, long long mtime) const;

 private:
  int fd_;
};

using Snapshot = std::map<std::string, std::string>;

// Everything below `top` by its path from there, with all that a job brings back of it: kind, date,
// mode, owner (as root only), attributes, of a file size and content, of a link its target, of a
// device its number, and of a further name of a file the first one; of a socket the kind alone;
// with `plain` no attributes, and of a directory only the date. Of a file above 64 MiB the first
// and last MiB and one in the middle stand for the content.
Snapshot snapshot(const std::string& top, bool plain = false);

// The paths that differ, a line each, with both sides; empty if there are none.
std::string difference(const Snapshot& expected, const Snapshot& found);

// `depth` directories, each in the one before and named with `length` bytes, a file in each.
void make_deep(const std::string& top, int depth, std::size_t length);

// `count` files of different sizes.
void make_many(const std::string& top, int count);

// Files of every kind of name, size, date and mode, and links, FIFOs and devices, all of which can
// be saved.
void make_hard_tree(const std::string& top);

// A socket, which no job saves. 0 on success.
int make_socket(const char* path);

// A file of `size` bytes that holds a few, at its ends and in the middle.
void make_sparse(const std::string& path, long long size);

}  // namespace test_support
