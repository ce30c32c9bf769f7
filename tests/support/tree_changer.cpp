#include "tests/support/tree_changer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/file_tree.h"
#include "tests/support/temp_dir.h"

namespace test_support {
namespace {

// Few names, so that each is met in all its kinds, and of which some sort oddly. The first ones are
// those of directories.
const char* const names[] = {"a", "a b", "a.x", "B", "a-", "b", "~", "\xC3\xA9", "\xFF"};
constexpr unsigned int directory_names = 3;

void remove(const std::string& path) {
  std::error_code error;
  std::filesystem::remove_all(path, error);
}

}  // namespace

void Tree_Changer::change() {
  switch (below(18)) {
    case 0:
      return remove(some_path());
    case 1:
      static_cast<void>(::rename(some_directory().c_str(), some_directory().c_str()));
      return;
    case 2:
      static_cast<void>(::rename(some_path().c_str(), some_path().c_str()));
      return;
    case 3:
      static_cast<void>(::truncate(some_path().c_str(), below(70000)));
      return;
    case 4:
      return append(some_path(), below(70000));
    case 5:
      return replace([](const char* at) { return ::mkfifo(at, 0644); });
    case 6:
      // A device that never ends, where it can be made.
      return replace([](const char* at) { return ::mknod(at, S_IFCHR | 0644, makedev(1, 5)); });
    case 7:
      return replace(make_socket);
    case 8:
      return replace([this](const char* at) { return ::symlink((outside_ + "/~").c_str(), at); });
    case 9:
      return replace([this](const char* at) { return ::link(some_path().c_str(), at); });
    case 10:
    case 11:
    case 12:
      return fill(some_directory(), "moving", 1);
    default:
      return swap(some_directory());
  }
}

void Tree_Changer::fill(const std::string& directory, const std::string& content, int levels) {
  if (::mkdir(directory.c_str(), 0755) != 0) return;
  for (std::size_t n = 0; n < std::size(names); ++n) {
    const std::string path = directory + '/' + names[n];
    if (levels == 0 || n >= directory_names) {
      write_file(path, content);
    } else {
      fill(path, content, levels - 1);
    }
  }
}

std::string Tree_Changer::some_directory() {
  std::string path = tree_;
  for (unsigned int levels = 1 + below(3); levels > 0; --levels) {
    path += std::string("/") + names[below(directory_names)];
  }
  return path;
}

std::string Tree_Changer::some_path() {
  return some_directory() + '/' + names[below(std::size(names))];
}

void Tree_Changer::append(const std::string& path, std::size_t size) {
  const int file =
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_NOFOLLOW, 0644);
  if (file == -1) return;
  const std::string data(size, 'c');
  static_cast<void>(!::write(file, data.data(), data.size()));
  ::close(file);
}

template <class Make>
void Tree_Changer::replace(Make make) {
  const std::string path = some_path();
  remove(path);
  static_cast<void>(make(path.c_str()));
}

// A directory and a link to one outside, in turns, in one step and back.
void Tree_Changer::swap(const std::string& path) {
  const std::string link = tree_ + ".link";
  ::unlink(link.c_str());
  if (::symlink(outside_.c_str(), link.c_str()) != 0) return;
  for (int turn = 0; turn < 2; ++turn) {
    ::syscall(SYS_renameat2, AT_FDCWD, path.c_str(), AT_FDCWD, link.c_str(), 2 /* exchange */);
    ::usleep(below(300));
  }
}

}  // namespace test_support
