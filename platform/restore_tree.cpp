#include "platform/restore_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/tree.h"

namespace platform {
namespace {

constexpr mode_t directory_mode = 0777;  // less the process's mask
// Of the root, as nothing tells who may enter the directories below, and of a directory while it is
// filled.
constexpr mode_t closed_mode = 0700;
constexpr mode_t private_mode = 0600;
constexpr mode_t permission_bits = 07777;
constexpr mode_t lending_bits = S_ISUID | S_ISGID;
constexpr int most_attempts = 1000;

bool is_plain_name(const std::string& name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

int result_of(int call) {
  return call == 0 ? 0 : errno;
}

int set_time(int fd, long long mtime) {
  struct timespec times[2] = {};
  times[0].tv_nsec = UTIME_OMIT;
  times[1].tv_sec = static_cast<time_t>(mtime);
  return result_of(::futimens(fd, times));
}

}  // namespace

Restore_Tree::~Restore_Tree() {
  discard();
  leave();
  if (root_ >= 0) ::close(root_);
}

int Restore_Tree::open(const std::string& to) {
  const int error = make_dirs(to, closed_mode);
  if (error != 0) return error;
  const int fd = ::open(to.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return errno;
  leave();
  if (root_ >= 0) ::close(root_);
  root_ = directory_ = fd;
  return 0;
}

void Restore_Tree::leave() {
  if (directory_ != root_ && directory_ >= 0) ::close(directory_);
  directory_ = root_;
  names_.clear();
}

int Restore_Tree::enter(const std::vector<std::string>& names, Make make) {
  // A directory below the last one needs only the steps that are new.
  const bool below =
      names.size() >= names_.size() && std::equal(names_.begin(), names_.end(), names.begin());
  if (!below) leave();
  while (names_.size() < names.size()) {
    const std::string& name = names[names_.size()];
    int next = -1;
    const bool last = names_.size() + 1 == names.size();
    const Make how = make == Make::shared && !last ? Make::closed : make;
    const int error = step(directory_, name, how, next);
    if (error != 0) return error;
    if (directory_ != root_) ::close(directory_);
    directory_ = next;
    names_.push_back(name);
  }
  return 0;
}

int Restore_Tree::step(int from, const std::string& name, Make make, int& to) {
  if (!is_plain_name(name)) return EINVAL;
  constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  to = ::openat(from, name.c_str(), flags);
  if (to >= 0) return 0;
  if (errno != ENOENT || make == Make::none) return errno;
  const mode_t mode = make == Make::closed ? closed_mode : directory_mode;
  if (::mkdirat(from, name.c_str(), mode) != 0 && errno != EEXIST) return errno;
  to = ::openat(from, name.c_str(), flags);
  return to >= 0 ? 0 : errno;
}

int Restore_Tree::finish_directory(const Restore_Attributes& attributes) {
  return set_attributes(directory_, attributes);
}

// Gives a file to its owner and tells with which mode.
int Restore_Tree::give_owner(int fd, const Restore_Attributes::Owner& owner, unsigned int& mode) {
  mode = owner.mode & permission_bits;
  if (::fchown(fd, static_cast<uid_t>(owner.uid), static_cast<gid_t>(owner.gid)) == 0) return 0;
  if (errno != EPERM && errno != EINVAL) return errno;
  owner_error_ = errno;
  mode &= ~lending_bits;
  return 0;
}

// A change of owner takes capabilities away, and a mode may take away the right to set attributes,
// so they are set in between.
int Restore_Tree::set_attributes(int fd, const Restore_Attributes& attributes) {
  left_out_.clear();
  owner_error_ = 0;
  unsigned int mode = 0;
  int error = attributes.owner ? give_owner(fd, *attributes.owner, mode) : 0;
  if (error != 0) return error;
  set_extended(fd, attributes);
  if (attributes.owner) error = result_of(::fchmod(fd, mode));
  if (error == 0 && attributes.mtime) error = set_time(fd, *attributes.mtime);
  return error;
}

void Restore_Tree::set_extended(int fd, const Restore_Attributes& attributes) {
  if (attributes.exact_acl) {
    for (const char* acl : {"system.posix_acl_access", "system.posix_acl_default"}) {
      ::fremovexattr(fd, acl);
    }
  }
  for (const auto& [name, value] : attributes.extended) {
    if (::fsetxattr(fd, name.c_str(), value.data(), value.size(), 0) == 0) continue;
    left_out_.push_back(name + ": " + std::strerror(errno));
  }
}

int Restore_Tree::create() {
  discard();
  for (int attempt = 0; attempt < most_attempts; ++attempt) {
    temporary_ = ".mtf-restore-" + std::to_string(::getpid()) + '-' + std::to_string(++made_);
    file_ = ::openat(directory_, temporary_.c_str(),
                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, private_mode);
    if (file_ >= 0) return 0;
    if (errno != EEXIST) return errno;
  }
  return EEXIST;
}

int Restore_Tree::write_at(unsigned long long offset, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t n = ::pwrite(file_, data, size, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    data += n;
    offset += static_cast<unsigned long long>(n);
    size -= static_cast<std::size_t>(n);
  }
  return 0;
}

int Restore_Tree::finish(const std::string& name, const Restore_Attributes& attributes) {
  if (!is_plain_name(name)) return EINVAL;
  int error = result_of(::ftruncate(file_, static_cast<off_t>(attributes.length)));
  if (error == 0) error = set_attributes(file_, attributes);
  if (error != 0) return error;
  const int fd = file_;
  file_ = -1;
  // A delayed error of the storage below comes with close.
  if (::close(fd) == 0 &&
      ::renameat(directory_, temporary_.c_str(), directory_, name.c_str()) == 0) {
    return 0;
  }
  error = errno;
  ::unlinkat(directory_, temporary_.c_str(), 0);
  return error;
}

void Restore_Tree::discard() {
  if (file_ < 0) return;
  ::close(file_);
  file_ = -1;
  ::unlinkat(directory_, temporary_.c_str(), 0);
}

}  // namespace platform
