// The entries of one directory, and the order in which they are saved.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/directory.h"
#include "platform/stat.h"

namespace oxbase {

// The order of paths in a depth-first listing: bytes compare unsigned, a backslash is below every
// other byte, and a path comes before all that it is a prefix of.
bool path_less(std::string_view a, std::string_view b);

template <class C>
struct Directory_Entry_T {
  std::basic_string<C> name;      // system name
  _stat64 stat;                   // of the link itself, where it is one
  unsigned int reparse_type = 0;  // 0 for an ordinary entry, 16 for a deduplicated file

  bool is_directory() const { return (stat.st_mode & 0xF000) == 0x4000; }
};

// Every non-directory ahead of every directory, each group in the order of path_less().
bool operator<(const Directory_Entry_T<char>& a, const Directory_Entry_T<char>& b);

// Puts the entries of one directory in that order and keeps each name once: a directory that
// changes while it is read may give one twice. If a name is a directory's and another entry's, the
// directory stays, and the other entry is returned: should the directory have gone again, the walk
// tells of it.
std::vector<Directory_Entry_T<char>> put_in_order(std::vector<Directory_Entry_T<char>>& entries);

// Reads a directory by its system path. No file system here has reparse points, so the choice of
// them changes nothing.
class Directory_Reader {
 public:
  // A path that is itself a link fails unless `follow`. Returns 0 or the errno.
  int open(const std::string& path, bool reparse_points, unsigned int reparse_mask,
           bool follow = false);

  // The next entry; `end` is set behind the last one. Returns 0 or the errno.
  int read(Directory_Entry_T<char>& entry, bool& end);

 private:
  platform::Directory_Handle handle_;
};

template <class C>
class Directory_Iterator_T;

// An input iterator. Copies share one position and advance together.
template <>
class Directory_Iterator_T<char> {
 public:
  using Entry = Directory_Entry_T<char>;

  // The end iterator.
  Directory_Iterator_T() = default;

  // Opens a directory and stands on its first entry. With a null or empty path, or where the
  // directory can't be opened or its first read fails, it is the end iterator without a handle. A
  // path that is itself a link can't be opened unless `follow`.
  explicit Directory_Iterator_T(const char* path, bool reparse_points = false,
                                unsigned int reparse_mask = 0, bool follow = false);
  explicit Directory_Iterator_T(const std::string& path, bool reparse_points = false,
                                unsigned int reparse_mask = 0, bool follow = false)
      : Directory_Iterator_T(path.c_str(), reparse_points, reparse_mask, follow) {}

  // The entry stays until the iterator or a copy of it is advanced.
  Entry& operator*() const { return handle_->entry; }
  Entry* operator->() const { return &handle_->entry; }
  Directory_Iterator_T& operator++();

  bool operator==(const Directory_Iterator_T& other) const;
  bool operator!=(const Directory_Iterator_T& other) const { return !(*this == other); }

  // False where the directory couldn't be opened or read at all.
  bool has_handle() const { return handle_ != nullptr; }

  // The errno of the open or read that failed, else 0.
  int ec() const { return ec_; }

 private:
  struct handle_t {
    Entry entry;
    Directory_Reader reader;
    bool end = false;
  };

  bool at_end() const { return !handle_ || handle_->end; }

  std::shared_ptr<handle_t> handle_;
  int ec_ = 0;
};

}  // namespace oxbase
