#include "tests/support/file_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

namespace test_support {
namespace {

constexpr long long mebibyte = 1 << 20;

std::string read_at(int file, long long at, long long size) {
  std::string data(static_cast<std::size_t>(size), '\0');
  std::size_t have = 0;
  ssize_t taken = 0;
  while (have < data.size() && (taken = ::pread(file, &data[have], data.size() - have,
                                                at + static_cast<off_t>(have))) > 0) {
    have += static_cast<std::size_t>(taken);
  }
  data.resize(have);
  return data;
}

std::string content_of(const Held_Dir& dir, const std::string& name, long long size) {
  const int file = ::openat(dir.fd(), name.c_str(), O_RDONLY | O_NOFOLLOW);
  if (file == -1) return "unreadable";
  std::string data;
  if (size <= 64 * mebibyte) {
    data = read_at(file, 0, size);
  } else {
    for (const long long at : {0LL, size / 2, size - mebibyte}) data += read_at(file, at, mebibyte);
  }
  ::close(file);
  if (data.size() <= 16) return data;
  return std::to_string(data.size()) + " bytes, hash " +
         std::to_string(std::hash<std::string>()(data));
}

std::string target_of(const Held_Dir& dir, const std::string& name) {
  std::string target(4096, '\0');
  const ssize_t size = ::readlinkat(dir.fd(), name.c_str(), target.data(), target.size());
  target.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
  return target;
}

// The extended attributes, those that hold access lists among them.
std::string attributes_of(const Held_Dir& dir, const std::string& name) {
  const std::string path = "/proc/self/fd/" + std::to_string(dir.fd()) + '/' + name;
  std::vector<char> names(65536), value(65536);
  const ssize_t size = ::llistxattr(path.c_str(), names.data(), names.size());
  std::map<std::string, std::string> all;
  for (ssize_t at = 0; at < size; at += static_cast<ssize_t>(std::strlen(&names[at])) + 1) {
    const ssize_t length = ::lgetxattr(path.c_str(), &names[at], value.data(), value.size());
    all[&names[at]].assign(value.data(), length < 0 ? 0 : static_cast<std::size_t>(length));
  }
  std::string text;
  for (const auto& [key, content] : all) text += ' ' + key + '=' + content;
  return text;
}

std::string describe(const Held_Dir& dir, const std::string& name, const struct stat& record,
                     bool plain) {
  std::ostringstream text;
  text << "kind " << std::oct << (record.st_mode & S_IFMT) << std::dec;
  const bool regular = S_ISREG(record.st_mode);
  if (S_ISSOCK(record.st_mode)) return text.str();
  text << " date " << record.st_mtime;
  if (!S_ISDIR(record.st_mode) || !plain) {
    text << " mode " << std::oct << (record.st_mode & 07777) << std::dec;
    if (::geteuid() == 0) text << " owner " << record.st_uid << ':' << record.st_gid;
  }
  if (S_ISCHR(record.st_mode) || S_ISBLK(record.st_mode)) text << " number " << record.st_rdev;
  if (S_ISLNK(record.st_mode)) text << " to " << target_of(dir, name);
  if (regular) text << " size " << record.st_size << ' ' << content_of(dir, name, record.st_size);
  if (!plain) text << attributes_of(dir, name);
  return text.str();
}

// The paths of each file that has several names, by its inode.
using Names = std::map<std::pair<dev_t, ino_t>, std::set<std::string>>;

void add(const Held_Dir& dir, const std::string& path, bool plain, Snapshot& all, Names& files) {
  DIR* stream = ::fdopendir(::openat(dir.fd(), ".", O_RDONLY | O_DIRECTORY));
  if (stream == nullptr) {
    all[path] += " unreadable";
    return;
  }
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(stream)) names.push_back(entry->d_name);
  ::closedir(stream);
  for (const std::string& name : names) {
    struct stat record;
    if (name == "." || name == "..") continue;
    EXPECT_EQ(::fstatat(dir.fd(), name.c_str(), &record, AT_SYMLINK_NOFOLLOW), 0) << name;
    all[path + '/' + name] = describe(dir, name, record, plain);
    if (S_ISDIR(record.st_mode))
      add(Held_Dir(dir, name), path + '/' + name, plain, all, files);
    else if (!S_ISSOCK(record.st_mode))
      files[{record.st_dev, record.st_ino}].insert(path + '/' + name);
  }
}

std::string shortened(const std::string& path) {
  return path.size() <= 300 ? path : path.substr(0, 50) + "..." + path.substr(path.size() - 50);
}

void make_names(const Held_Dir& dir) {
  // With slashes between them.
  std::istringstream odd(
      "\xFF\xFE/\xC3(/\xC0\xAF/\xED\xA0\x80/\xED\xB3\xBF/back\\slash/\\/\\\\/new\nline/\n/"
      "\xEF\x81\x9B/\xEF\x81\x9C/\xEF\x81\x9B\xEF\x81\x9C\\/\xEF\x81\x9Bx/.hidden/.../100%/%41/%/"
      " /-n/\x01\x7F/\"'`$/a:b|c*d?e<f>/X:/trailing./trailing /\xF0\x9F\x98\x80");
  std::vector<std::string> names{std::string(255, 'n'), std::string(251, '\xFF') + "\xE2\x82\xAC."};
  for (std::string name; std::getline(odd, name, '/');) names.push_back(name);
  int number = 0;
  for (const std::string& name : names) {
    dir.write(name, "file " + std::to_string(number));
    const Held_Dir below(dir, name.size() < 250 ? name + ".dir" : name.substr(1));
    below.write(name, "below " + std::to_string(number++));
  }
}

// Links to all kinds of targets, further names across directories, FIFOs and, as root, devices.
void make_links(const Held_Dir& dir) {
  const Held_Dir below(dir, "below");
  int number = 0;
  for (const std::string& target :
       {std::string("first"), std::string("/"), std::string("//a//../b/"), std::string("below"),
        std::string("\\back\\\xEF\x81\x9C\xEF\x81\x9B\xEF\x81\x9C\n"),
        std::string("\xFF\xC3(\xED\xA0\x80"), std::string(3000, 'x'), std::string(4095, '\\')}) {
    const std::string name = "to " + std::to_string(number++);
    const timespec times[2] = {{0, 0}, {static_cast<time_t>(-1000000000LL * number), 0}};
    EXPECT_EQ(::symlinkat(target.c_str(), dir.fd(), name.c_str()), 0);
    EXPECT_EQ(::utimensat(dir.fd(), name.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }
  dir.write("first", "content of three names");
  EXPECT_EQ(::mkfifoat(dir.fd(), "fifo", 0640), 0);
  if (::geteuid() == 0) {
    EXPECT_EQ(::mknodat(dir.fd(), "character", S_IFCHR | 0606, makedev(1, 3)), 0);
    EXPECT_EQ(::mknodat(dir.fd(), "block", S_IFBLK | 0600, makedev(7, 70000)), 0);
    EXPECT_EQ(::fchownat(dir.fd(), "to 0", 70000, 3, AT_SYMLINK_NOFOLLOW), 0);
    EXPECT_EQ(::fchownat(dir.fd(), "fifo", 0x7FFFFFFE, 4, 0), 0);
  }
  for (const char* name : {"first", "to 1", "fifo"}) {
    EXPECT_EQ(::linkat(dir.fd(), name, below.fd(), name, 0), 0) << name;
  }
  EXPECT_EQ(::linkat(dir.fd(), "first", dir.fd(), "also", 0), 0);
}

}  // namespace

Held_Dir::Held_Dir(const std::string& path) : fd_(::open(path.c_str(), O_RDONLY | O_DIRECTORY)) {
  EXPECT_NE(fd_, -1) << path;
}

Held_Dir::Held_Dir(const Held_Dir& parent, const std::string& name) {
  ::mkdirat(parent.fd(), name.c_str(), 0755);
  fd_ = ::openat(parent.fd(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
}

Held_Dir::~Held_Dir() {
  if (fd_ != -1) ::close(fd_);
}

void Held_Dir::write(const std::string& name, const std::string& content) const {
  const int file = ::openat(fd_, name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0644);
  EXPECT_NE(file, -1) << name;
  EXPECT_EQ(::write(file, content.data(), content.size()), static_cast<ssize_t>(content.size()));
  ::close(file);
}

void Held_Dir::set(const std::string& name, unsigned int mode, long long mtime) const {
  const timespec times[2] = {{0, 0}, {static_cast<time_t>(mtime), 0}};
  EXPECT_EQ(::fchmodat(fd_, name.c_str(), mode, 0), 0) << name;
  EXPECT_EQ(::utimensat(fd_, name.c_str(), times, 0), 0) << name;
}

Snapshot snapshot(const std::string& top, bool plain) {
  Snapshot all;
  Names files;
  add(Held_Dir(top), "", plain, all, files);
  for (const auto& [file, paths] : files) {
    for (auto path = std::next(paths.begin()); path != paths.end(); ++path) {
      all[*path] += " one file with " + *paths.begin();
    }
  }
  return all;
}

std::string difference(const Snapshot& expected, const Snapshot& found) {
  std::string lines;
  Snapshot both = found;
  both.insert(expected.begin(), expected.end());
  for (const auto& each : both) {
    const auto left = expected.find(each.first), right = found.find(each.first);
    const std::string was = left == expected.end() ? "nothing" : left->second;
    const std::string is = right == found.end() ? "nothing" : right->second;
    if (was != is) lines += shortened(each.first) + ": " + was + ", came back: " + is + '\n';
  }
  return lines.substr(0, 10000);
}

void make_deep(const std::string& top, int depth, std::size_t length) {
  auto dir = std::make_unique<Held_Dir>(top);
  for (int i = 0; i < depth; ++i) {
    const std::string number = std::to_string(i);
    dir = std::make_unique<Held_Dir>(*dir, number + std::string(length - number.size(), 'd'));
    dir->write("file", number);
  }
}

void make_many(const std::string& top, int count) {
  const Held_Dir dir(top);
  const std::string content(4097, 'm');
  for (int i = 0; i < count; ++i) {
    dir.write("file " + std::to_string(i), content.substr(0, static_cast<std::size_t>(i % 4098)));
  }
}

void make_hard_tree(const std::string& top) {
  const Held_Dir dir(top);
  make_names(Held_Dir(dir, "names"));
  make_links(Held_Dir(dir, "links"));
  make_deep(top, 200, 20);
  const Held_Dir many(dir, "many");
  make_many(top + "/many", 2000);
  const Held_Dir empty(dir, "empty");
  const Held_Dir sizes(dir, "sizes");
  for (const std::size_t size : {0, 1, 3, 4, 4095, 4096, 4097, 65535, 65536, 65537, 1 << 20}) {
    sizes.write(std::to_string(size), std::string(size, static_cast<char>('a' + size % 26)));
  }
  sizes.write("three MiB", std::string(3 << 20, 'M') + "and an end");
  make_sparse(top + "/sizes/sparse", 9 * mebibyte + 1);
  const Held_Dir stats(dir, "stats");
  int number = 0;
  for (const unsigned int mode : {0600, 0644, 0755, 0400, 04755, 02750, 01644, 07777}) {
    const std::string name = "mode " + std::to_string(number++);
    stats.write(name, name);
    stats.set(name, mode, 1000000000 + number);
  }
  for (const long long date : {-315619200LL, -1LL, 1LL, 951782400LL, 4102444800LL}) {
    const std::string name = "date " + std::to_string(date);
    stats.write(name, name);
    stats.set(name, 0640, date);
  }
  if (::geteuid() == 0) {
    stats.write("owner", "owner");
    EXPECT_EQ(::fchownat(stats.fd(), "owner", 70000, 0x7FFFFFFE, 0), 0);
  }
  dir.set("empty", 0755, 1111111111);
}

int make_socket(const char* path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::string(path).copy(address.sun_path, sizeof address.sun_path - 1);
  const int made = ::socket(AF_UNIX, SOCK_STREAM, 0);
  const int result = ::bind(made, reinterpret_cast<sockaddr*>(&address), sizeof address);
  ::close(made);
  return result;
}

void make_sparse(const std::string& path, long long size) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
  EXPECT_EQ(::ftruncate(file, size), 0);
  EXPECT_EQ(::pwrite(file, "head", 4, 0), 4);
  EXPECT_EQ(::pwrite(file, "middle", 6, size / 2 + 1000), 6);
  EXPECT_EQ(::pwrite(file, "tail", 4, size - 4), 4);
  ::close(file);
}

}  // namespace test_support
