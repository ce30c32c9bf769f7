#include "platform/tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "platform/long_path.h"

namespace platform {
namespace {

// Owns a descriptor, so that it is closed also where memory runs out; -1 for none.
class Handle {
 public:
  explicit Handle(int fd) : fd_(fd) {}
  ~Handle() {
    if (fd_ >= 0) close_quietly(fd_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }
  void take(Handle& other) { std::swap(fd_, other.fd_); }

 private:
  int fd_;
};

// One directory on the way down, and what is still to be removed in it.
struct Level {
  std::string name;  // in its parent
  dev_t dev;
  ino_t ino;
  std::vector<std::string> subdirs;
};

// Removes a tree with one directory open at a time: down by name, up by `..`, which is checked to
// lead to the directory that it came from.
class Tree_Remover {
 public:
  // Removes `name` in `parent`, which stays the caller's.
  int remove(int parent, const std::string& name) {
    if (unlink_other(parent, name)) return error_;
    if (!enter(parent, name)) return error_;
    while (!levels_.empty()) {
      if (levels_.back().subdirs.empty()) {
        if (!leave(parent)) break;
        continue;
      }
      const std::string next = std::move(levels_.back().subdirs.back());
      levels_.back().subdirs.pop_back();
      enter(dir_.get(), next);
    }
    return error_;
  }

 private:
  void note(int error) {
    if (error_ == 0 && error != ENOENT) error_ = error;
  }

  // True if `name` isn't a directory; it is removed then, or the failure is recorded.
  bool unlink_other(int dir, const std::string& name) {
    if (::unlinkat(dir, name.c_str(), 0) == 0) return true;
    const int error = errno;
    struct stat st;
    if (::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode)) {
      return false;
    }
    note(error);
    return true;
  }

  // Opens the directory `name`, removes all in it but its directories, and makes it the current
  // one.
  bool enter(int parent, const std::string& name) {
    Handle fd(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat st;
    if (fd.get() < 0 || ::fstat(fd.get(), &st) != 0) {
      note(errno);
      return false;
    }
    levels_.push_back({name, st.st_dev, st.st_ino, {}});
    empty(fd.get(), levels_.back().subdirs);
    dir_.take(fd);
    return true;
  }

  void empty(int fd, std::vector<std::string>& subdirs) {
    Handle copy(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(
        copy.get() < 0 ? nullptr : ::fdopendir(copy.get()), ::closedir);
    if (!dir) {
      note(errno);
      return;
    }
    copy.release();
    errno = 0;
    while (const dirent* entry = ::readdir(dir.get())) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      if (!unlink_other(fd, name)) subdirs.push_back(name);
      errno = 0;
    }
    note(errno);
  }

  // Goes up from an emptied directory and removes it.
  bool leave(int parent) {
    const std::string name = std::move(levels_.back().name);
    levels_.pop_back();
    Handle above(-1);
    if (!levels_.empty()) {
      Handle up(::openat(dir_.get(), "..", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
      struct stat st;
      if (up.get() < 0 || ::fstat(up.get(), &st) != 0 || st.st_dev != levels_.back().dev ||
          st.st_ino != levels_.back().ino) {
        note(up.get() < 0 ? errno : ESTALE);
        return false;
      }
      above.take(up);
    }
    if (::unlinkat(levels_.empty() ? parent : above.get(), name.c_str(), AT_REMOVEDIR) != 0) {
      note(errno);
    }
    dir_.take(above);
    return true;
  }

  std::vector<Level> levels_;
  Handle dir_{-1};
  int error_ = 0;
};

bool finish(int error) {
  if (error != 0) errno = error;
  return error == 0;
}

// A slash behind the name would lead through a link.
std::string without_last_slashes(const std::string& native) {
  return native.substr(0, std::max<std::size_t>(native.find_last_not_of('/') + 1, 1));
}

int make_dir(const std::string& native, unsigned int mode) {
  const Long_Path path(native);
  return path.ok() && ::mkdirat(path.dir(), path.rest(), mode) == 0 ? 0 : errno;
}

bool is_directory(const std::string& native) {
  const Long_Path path(native);
  struct stat st;
  return path.ok() && ::fstatat(path.dir(), path.rest(), &st, 0) == 0 && S_ISDIR(st.st_mode);
}

// Brings the name of a directory that was made to the disk.
int sync_parent(const std::string& native) {
  const std::string path = without_last_slashes(native);
  const std::size_t slash = path.rfind('/');
  const int fd = open_path(slash == std::string::npos ? "." : path.substr(0, slash + 1),
                           O_RDONLY | O_DIRECTORY);
  // A user may make a directory without being allowed to read the one above it.
  if (fd < 0) return errno == EACCES ? 0 : errno;
  const int error = ::fsync(fd) == 0 || errno == EINVAL ? 0 : errno;
  close_quietly(fd);
  return error;
}

// One directory on the way.
int make_step(const std::string& native, unsigned int mode) {
  const int error = make_dir(native, mode);
  if (error == 0 || is_directory(native)) return 0;
  return error == EEXIST ? ENOTDIR : error;
}

// Why a private directory that couldn't be opened is refused: what is somebody else's, or a link,
// isn't told apart by the error of the open.
int refusal(const std::string& native, int error) {
  struct stat st;
  const bool foreign =
      ::lstat(native.c_str(), &st) == 0 && (S_ISLNK(st.st_mode) || st.st_uid != ::geteuid());
  return foreign ? EPERM : error;
}

}  // namespace

bool remove_tree(const std::string& native) try {
  const std::size_t last = native.find_last_not_of('/');
  if (last == std::string::npos) return finish(EINVAL);
  const std::size_t slash = native.rfind('/', last);
  const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
  const std::string name = native.substr(start, last + 1 - start);
  if (name == "." || name == "..") return finish(EINVAL);
  const std::string parent = start == 0 ? "." : native.substr(0, start);
  const Handle fd(open_path(parent, O_PATH | O_DIRECTORY));
  if (fd.get() < 0) return errno == ENOENT || finish(errno);
  return finish(Tree_Remover().remove(fd.get(), name));
} catch (const std::bad_alloc&) {
  return finish(ENOMEM);
}

int make_dirs(const std::string& native, unsigned int mode) {
  if (native.empty()) return ENOENT;
  const int error = make_step(native, mode);
  if (error != ENOENT) return error;
  const std::string path = without_last_slashes(native);
  for (std::size_t end = path.find('/', 1); end != std::string::npos;
       end = path.find('/', end + 1)) {
    const int failed = make_step(path.substr(0, end), mode);
    if (failed != 0) return failed;
  }
  return make_step(path, mode);
}

int make_last_dir(const std::string& native, unsigned int mode) {
  const std::string path = without_last_slashes(native);
  const int error = make_dir(path, mode);
  if (error == 0) return sync_parent(path);
  if (is_directory(path)) return 0;
  return error == EEXIST ? ENOTDIR : error;
}

bool private_directory(const std::string& native) {
  const std::string path = without_last_slashes(native);
  const int made = make_dir(path, 0700);
  if (made != 0 && made != EEXIST) return finish(made);
  const int fd = open_path(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  if (fd < 0) return finish(refusal(path, errno));
  struct stat st;
  int error = ::fstat(fd, &st) == 0 ? 0 : errno;
  if (error == 0 && st.st_uid != ::geteuid()) error = EPERM;
  if (error == 0 && (st.st_mode & 0777) != 0700 && ::fchmod(fd, 0700) != 0) error = errno;
  close_quietly(fd);
  return finish(error);
}

Danger danger_of(const std::string& native) {
  const std::string path = without_last_slashes(native);
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return Danger::none;
  const bool sticky = (st.st_mode & S_ISVTX) != 0;
  if (S_ISLNK(st.st_mode)) return Danger::link;
  if (st.st_uid != ::geteuid()) return st.st_uid == 0 && sticky ? Danger::none : Danger::foreign;
  return (st.st_mode & S_IWOTH) != 0 && !sticky ? Danger::open : Danger::none;
}

}  // namespace platform
