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
// The mode of the root, as nothing tells who may enter the directories below, and that of a
// directory while it is filled.
constexpr mode_t closed_mode = 0700;
constexpr mode_t private_mode = 0600;
constexpr mode_t permission_bits = 07777;
constexpr mode_t lending_bits = S_ISUID | S_ISGID;
constexpr int most_temporary_names = 1000;

bool is_plain_name(const std::string& name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

int result_of(int call) {
  return call == 0 ? 0 : errno;
}

struct Times {
  explicit Times(long long mtime) {
    both[0].tv_nsec = UTIME_OMIT;
    both[1].tv_sec = static_cast<time_t>(mtime);
  }
  struct timespec both[2] = {};
};

// The owner of an open file, or of a place (O_PATH).
int set_owner(int fd, const Restore_Attributes::Owner& owner) {
  return ::fchownat(fd, "", static_cast<uid_t>(owner.uid), static_cast<gid_t>(owner.gid),
                    AT_EMPTY_PATH);
}

// A path that leads to what a descriptor is open for, also where that is a place (O_PATH). For a
// link it leads to the link itself.
std::string path_of(int fd) {
  return "/proc/self/fd/" + std::to_string(fd);
}

int identify_in(int directory, const std::string& name, File_Identity& out) {
  struct stat st;
  if (::fstatat(directory, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  out = {st.st_dev, st.st_ino};
  return 0;
}

bool same(const File_Identity& a, const File_Identity& b) {
  return a.device == b.device && a.inode == b.inode;
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
  if (set_owner(fd, owner) == 0) return 0;
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
  set_extended(fd, nullptr, attributes);
  if (attributes.owner) error = result_of(::fchmod(fd, mode));
  if (error == 0 && attributes.mtime) {
    error = result_of(::futimens(fd, Times(*attributes.mtime).both));
  }
  return error;
}

// The same for a link, device or FIFO, which isn't opened. No call here follows a link.
int Restore_Tree::set_place_attributes(const Restore_Attributes& attributes, bool is_link) {
  left_out_.clear();
  owner_error_ = 0;
  const int fd = ::openat(directory_, temporary_.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return errno;
  const std::string place = path_of(fd);
  unsigned int mode = 0;
  int error = attributes.owner ? give_owner(fd, *attributes.owner, mode) : 0;
  if (error == 0) set_extended(fd, place.c_str(), attributes);
  if (error == 0 && attributes.owner && !is_link) error = result_of(::chmod(place.c_str(), mode));
  ::close(fd);
  if (error != 0 || !attributes.mtime) return error;
  return result_of(::utimensat(directory_, temporary_.c_str(), Times(*attributes.mtime).both,
                               AT_SYMLINK_NOFOLLOW));
}

// Sets those of `fd`: by the path `place`, unless that is null, for what is no open file.
void Restore_Tree::set_extended(int fd, const char* place, const Restore_Attributes& attributes) {
  if (attributes.exact_acl) {
    for (const char* acl : {"system.posix_acl_access", "system.posix_acl_default"}) {
      if (place != nullptr) {
        ::removexattr(place, acl);
      } else {
        ::fremovexattr(fd, acl);
      }
    }
  }
  for (const auto& [name, value] : attributes.extended) {
    const int set = place != nullptr
                        ? ::setxattr(place, name.c_str(), value.data(), value.size(), 0)
                        : ::fsetxattr(fd, name.c_str(), value.data(), value.size(), 0);
    if (set == 0) continue;
    left_out_.push_back(name + ": " + std::strerror(errno));
  }
}

// Makes an entry under a name of its own that nothing else has.
template <class Make_Entry>
int Restore_Tree::make_temporary(Make_Entry make_entry) {
  discard();
  for (int attempt = 0; attempt < most_temporary_names; ++attempt) {
    temporary_ = ".mtf-restore-" + std::to_string(::getpid()) + '-' + std::to_string(++numbered_);
    if (make_entry(temporary_.c_str())) return 0;
    if (errno != EEXIST) return errno;
  }
  return EEXIST;
}

int Restore_Tree::create() {
  return make_temporary([&](const char* name) {
    file_ = ::openat(directory_, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                     private_mode);
    return file_ >= 0;
  });
}

int Restore_Tree::make_link(const std::string& name, const std::string& target,
                            const Restore_Attributes& attributes) {
  if (!is_plain_name(name) || target.empty() || target.find('\0') != std::string::npos)
    return EINVAL;
  const int error = make_temporary(
      [&](const char* entry) { return ::symlinkat(target.c_str(), directory_, entry) == 0; });
  return error != 0 ? error : finish_place(name, attributes, true);
}

int Restore_Tree::make_node(const std::string& name, unsigned int mode, unsigned long long number,
                            const Restore_Attributes& attributes) {
  const mode_t type = mode & S_IFMT;
  if (!is_plain_name(name)) return EINVAL;
  if (type != S_IFCHR && type != S_IFBLK && type != S_IFIFO) return EINVAL;
  const dev_t device = type == S_IFIFO ? 0 : static_cast<dev_t>(number);
  const int error = make_temporary([&](const char* entry) {
    return ::mknodat(directory_, entry, type | private_mode, device) == 0;
  });
  return error != 0 ? error : finish_place(name, attributes, false);
}

int Restore_Tree::finish_place(const std::string& name, const Restore_Attributes& attributes,
                               bool is_link) {
  const int error = set_place_attributes(attributes, is_link);
  if (error == 0) return take_name(name);
  ::unlinkat(directory_, temporary_.c_str(), 0);
  return error;
}

int Restore_Tree::make_further_name(const std::vector<std::string>& first,
                                    const File_Identity& identity, const std::string& name) {
  if (!is_plain_name(name) || first.empty()) return EINVAL;
  int from = root_;
  int error = 0;
  for (std::size_t i = 0; error == 0 && i + 1 < first.size(); ++i) {
    int next = -1;
    error = step(from, first[i], Make::none, next);
    if (from != root_) ::close(from);
    from = next;
  }
  File_Identity found;
  if (error == 0) error = identify_in(from, first.back(), found);
  if (error == 0 && !same(found, identity)) error = ESTALE;
  if (error == 0) {
    error = make_temporary([&](const char* entry) {
      return ::linkat(from, first.back().c_str(), directory_, entry, 0) == 0;
    });
  }
  if (from != root_ && from >= 0) ::close(from);
  if (error != 0) return error;
  // Nothing else may have taken the name in between.
  error = identify_in(directory_, temporary_, found);
  if (error == 0 && !same(found, identity)) error = ESTALE;
  if (error == 0) error = take_name(name);
  // A rename between two names of one file leaves both.
  ::unlinkat(directory_, temporary_.c_str(), 0);
  return error;
}

// Gives what has the temporary name its own.
int Restore_Tree::take_name(const std::string& name) {
  if (::renameat(directory_, temporary_.c_str(), directory_, name.c_str()) == 0) return 0;
  const int error = errno;
  ::unlinkat(directory_, temporary_.c_str(), 0);
  return error;
}

int Restore_Tree::identify(const std::string& name, File_Identity& out) const {
  return identify_in(directory_, name, out);
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
  if (::close(fd) == 0) return take_name(name);
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
