// restore, of whatever a media holds, into a directory in which links lead out of it. Nothing
// outside may change, and no name of what is there may come.
#include <dirent.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

#include "fuzz/pieces.h"
#include "platform/tree.h"

namespace {

constexpr int most_handles = 64;

// BASE/outside is what must stay as it is, BASE/room/to what is restored to.
class Rooms {
 public:
  Rooms() {
    const char* place = std::getenv("TMPDIR");
    std::string base = std::string(place != nullptr ? place : "/dev/shm") + "/mtf-fuzz-XXXXXX";
    if (::mkdtemp(&base[0]) == nullptr) fail("no directory to restore to");
    base_ = base;
    make("outside/directory");
    make("outside/room");
    std::ofstream(base_ + "/outside/file") << "not yours";
    link("file", "outside/link");
    make("room");
  }
  ~Rooms() { platform::remove_tree(base_); }

  std::string to() const { return base_ + "/room/to"; }

  // The names are those of the tree that the corpus was made of.
  void plant() {
    make("room/to/C");
    link("../../../outside/directory", "room/to/C/link");
    link("../../../outside/file", "room/to/C/file");
    link("../..", "room/to/X");
    link("../../outside", "room/to/link");
  }

  void clear() {
    if (!platform::remove_tree(to())) fail("the restored tree can't be removed");
  }

  // Everything that a change outside would show in, the times of the last change among it.
  std::string outside() const {
    std::string all;
    for (const char* path : {"", "/outside", "/outside/directory", "/outside/room", "/outside/file",
                             "/outside/link"}) {
      struct stat st;
      if (::lstat((base_ + path).c_str(), &st) != 0) fail("something outside is gone");
      std::ostringstream line;
      line << st.st_ino << ' ' << st.st_mode << ' ' << st.st_uid << ' ' << st.st_nlink << ' '
           << st.st_size << ' ' << st.st_ctim.tv_sec << '.' << st.st_ctim.tv_nsec << '\n';
      all += line.str();
    }
    return all;
  }

  // The room's own directory gets and loses `to`, so its times say nothing.
  void check_room() const {
    struct stat st;
    if (::lstat((base_ + "/room").c_str(), &st) != 0 || (st.st_mode & 07777) != 0700 ||
        st.st_uid != ::geteuid()) {
      fail("the directory above has changed");
    }
    DIR* room = ::opendir((base_ + "/room").c_str());
    if (room == nullptr) fail("the directory above can't be read");
    while (const dirent* entry = ::readdir(room)) {
      const std::string name = entry->d_name;
      if (name != "." && name != ".." && name != "to") fail("something came beside the directory");
    }
    ::closedir(room);
  }

  // Lets a user who isn't root look into directories that a media has closed.
  static void open_up(const std::string& path) {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return;
    if (::geteuid() != 0) ::chmod(path.c_str(), 0700);
    DIR* directory = ::opendir(path.c_str());
    if (directory == nullptr) fail("a restored directory can't be read");
    while (const dirent* entry = ::readdir(directory)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") open_up(path + '/' + name);
    }
    ::closedir(directory);
  }

  // No file may have a name elsewhere; no temporary file may stay.
  void check_restored() const {
    static std::map<ino_t, nlink_t> missing;  // names of a file that weren't met
    missing.clear();
    const auto look = [](const char* path, const struct stat* st, int, struct FTW* at) {
      if (S_ISDIR(st->st_mode)) return 0;
      if (S_ISSOCK(st->st_mode)) fail("a socket came");
      --missing.try_emplace(st->st_ino, st->st_nlink).first->second;
      if (std::strncmp(path + at->base, ".mtf-restore-", 13) == 0) fail("a temporary file is left");
      return 0;
    };
    ::nftw(to().c_str(), look, most_handles, FTW_PHYS);
    for (const auto& file : missing) {
      if (file.second != 0) fail("a file has a name outside");
    }
  }

  [[noreturn]] static void fail(const char* what) {
    std::cerr << what << std::endl;
    std::abort();
  }

 private:
  void make(const char* path) {
    if (platform::make_dirs(base_ + '/' + path, 0700) != 0) fail("no room");
  }
  void link(const char* target, const char* path) {
    if (::symlink(target, (base_ + '/' + path).c_str()) != 0) fail("no link");
  }

  std::string base_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Rooms rooms;
  static const std::string outside = rooms.outside();
  fuzz::Input_Store store(data, size);
  const std::vector<MTF::Job_Pieces> jobs = fuzz::jobs_of(store);
  const MTF::Problem_Sink on_problem = [](const std::string& path, const std::string& why) {
    if (path.empty() || why.empty()) Rooms::fail("a problem isn't told");
  };
  rooms.plant();
  for (const MTF::Job_Pieces& job : jobs) {
    for (const bool from_media : {false, true}) {
      MTF::restore_job(store, job, {rooms.to(), {}, from_media}, nullptr, on_problem);
    }
    unsigned long long bytes = 0;
    std::string why;
    MTF::restore_pre_action(store, job, rooms.to() + "/dump", bytes, nullptr, why);
  }
  Rooms::open_up(rooms.to());
  rooms.check_restored();
  rooms.check_room();
  if (rooms.outside() != outside) Rooms::fail("something outside has changed");
  rooms.clear();
  return 0;
}
