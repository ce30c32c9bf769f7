// Jobs over a tree that another process changes without pause.
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <random>

#include "tests/support/agent_run.h"

namespace {

namespace fs = std::filesystem;
using test_support::Agent_Run;
using test_support::Arguments;
using test_support::Output;
using test_support::Process;

constexpr const char* secret = "SECRET of a directory that nobody named";

// Does what users and programs do to a tree, only faster.
class Changer {
 public:
  Changer(std::string tree, std::string outside, unsigned int seed)
      : tree_(std::move(tree)), outside_(std::move(outside)), random_(seed) {}

  void change() {
    switch (below(16)) {
      case 0:
        return remove(some_path());
      case 1:
        static_cast<void>(::rename(some_directory().c_str(), some_directory().c_str()));
        return;
      case 2:
        static_cast<void>(::truncate(some_path().c_str(), below(70000)));
        return;
      case 3:
        return append(some_path(), below(70000));
      case 4:
        return replace([](const char* at) { return ::mkfifo(at, 0644); });
      case 5:
        // A device that never ends, where it can be made.
        return replace([](const char* at) { return ::mknod(at, S_IFCHR | 0644, makedev(1, 5)); });
      case 6:
        return replace(make_socket);
      case 7:
        return replace(
            [this](const char* at) { return ::symlink((outside_ + "/f0").c_str(), at); });
      case 8:
      case 9:
      case 10:
        return make_directory(some_directory());
      default:
        return swap(some_directory());
    }
  }

  // Few names, so that each is met in all its kinds.
  static void fill(const std::string& directory, const std::string& content) {
    for (int n = 0; n < 8; ++n) {
      test_support::write_file(directory + "/f" + std::to_string(n), content);
    }
  }

 private:
  unsigned int below(unsigned int n) { return static_cast<unsigned int>(random_() % n); }

  std::string some_directory() {
    std::string path = tree_;
    for (unsigned int levels = 1 + below(3); levels > 0; --levels) {
      path += "/d" + std::to_string(below(3));
    }
    return path;
  }

  std::string some_path() {
    const std::string directory = some_directory();
    return below(4) == 0 ? directory : directory + "/f" + std::to_string(below(8));
  }

  void make_directory(const std::string& path) {
    for (const char* below_it : {"", "/d0", "/d1", "/d2"}) {
      if (::mkdir((path + below_it).c_str(), 0755) == 0) fill(path + below_it, "moving");
    }
  }

  static void remove(const std::string& path) {
    std::error_code error;
    fs::remove_all(path, error);
  }

  static void append(const std::string& path, std::size_t size) {
    const int file =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_NOFOLLOW, 0644);
    if (file == -1) return;
    const std::string data(size, 'c');
    static_cast<void>(!::write(file, data.data(), data.size()));
    ::close(file);
  }

  template <class Make>
  void replace(Make make) {
    const std::string path = some_path();
    remove(path);
    static_cast<void>(make(path.c_str()));
  }

  static int make_socket(const char* at) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string(at).copy(address.sun_path, sizeof address.sun_path - 1);
    const int made = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const int result = ::bind(made, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::close(made);
    return result;
  }

  // A directory and a link to one outside, in turns, in one step and back.
  void swap(const std::string& path) {
    const std::string link = tree_ + ".link";
    ::unlink(link.c_str());
    if (::symlink(outside_.c_str(), link.c_str()) != 0) return;
    for (int turn = 0; turn < 2; ++turn) {
      ::syscall(SYS_renameat2, AT_FDCWD, path.c_str(), AT_FDCWD, link.c_str(), 2 /* exchange */);
      ::usleep(below(300));
    }
  }

  const std::string tree_, outside_;
  std::mt19937 random_;
};

// A process that changes the tree until the object goes.
class Changing_Process {
 public:
  Changing_Process(const std::string& tree, const std::string& outside, unsigned int seed)
      : child_(::fork()) {
    EXPECT_NE(child_, -1);
    if (child_ != 0) return;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    Changer changer(tree, outside, seed);
    for (;;) changer.change();
  }
  ~Changing_Process() {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }

 private:
  pid_t child_;
};

class Changing_Tree : public Agent_Run {
 protected:
  Changing_Tree() {
    fs::create_directories(source("/still/sub"));
    test_support::make_many(source("/still"), 50);
    test_support::make_many(source("/still/sub"), 20);
    fs::create_directory(source("/zz still"));
    test_support::make_many(source("/zz still"), 50);
  }

  // A changing process that was killed may have left a link where it put a directory for a moment,
  // and the next one would move what is outside through it.
  void start_anew() {
    for (const std::string& old : {source("/moving"), source("/moving.link"), dir_ / "outside"}) {
      fs::remove_all(old);
    }
    fs::create_directory(source("/moving"));
    // As deep as the tree, with the same names, so that each way in has something at its end.
    mirror(dir_ / "outside", 4);
  }

  static void mirror(const std::string& directory, int levels) {
    fs::create_directory(directory);
    Changer::fill(directory, secret);
    for (int n = 0; levels > 0 && n < 3; ++n) {
      mirror(directory + "/d" + std::to_string(n), levels - 1);
    }
  }

  // One job and all that is to hold for it.
  void expect_sound(const char* command, const Arguments& how, bool old_kernel) {
    const std::string to = "to";
    Arguments arguments = full(how);
    arguments[1] = command;
    Process job(arguments, {RLIM_INFINITY, false, old_kernel});
    ASSERT_TRUE(test_support::wait_until([&job] { return job.has_ended(); })) << "the job hangs";
    const Output saved = job.finish();
    ASSERT_TRUE(saved.code == 0 || saved.code == 3) << saved.code << saved.err.substr(0, 4000);
    const Output verified = test_support::run(on_storage("verify"));
    EXPECT_EQ(verified.code, 0) << verified.out << verified.err;
    for (const std::string& piece : pieces()) {
      EXPECT_EQ(test_support::read_file(storage(piece)).find(secret), std::string::npos) << piece;
    }
    const Output restored = restore(to);
    EXPECT_EQ(restored.code, 0) << restored.err.substr(0, 4000);
    for (const char* still : {"/still", "/zz still"}) {
      EXPECT_EQ(test_support::difference(test_support::snapshot(source(still)),
                                         test_support::snapshot((dir_ / to) + source(still))),
                "");
    }
  }
};

TEST_F(Changing_Tree, EveryJobIsSound) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < MTF_TEST_CHANGING_ROUNDS; ++round) {
    start_anew();
    const Changing_Process changing(source("/moving"), dir_ / "outside", seed + round);
    Arguments how{"--threads", round % 2 == 0 ? "1" : "3", "--channels",
                  round / 2 % 2 == 0 ? "1" : "2"};
    if (random() % 2 == 0) how.push_back("--plain");
    SCOPED_TRACE("round " + std::to_string(round) + (how.size() > 4 ? " plain" : ""));
    for (const char* command : {"full", "incremental", "incremental"}) {
      SCOPED_TRACE(command);
      expect_sound(command, how, round % 3 == 2);
      fs::remove_all(dir_ / "to");
      if (HasFailure()) return;
    }
    fs::remove_all(dir_ / "storage");
  }
}

}  // namespace
