#include "platform/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include "platform/starter_thread.h"

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int slice = 100;         // milliseconds between two looks at what else may end a wait
constexpr int time_to_end = 5000;  // milliseconds that a child gets to end by itself
constexpr std::size_t most_said = 65536;  // bytes

// Everything that the child needs, made ahead of the fork: behind it memory can't be had.
struct Image {
  std::string path;
  std::vector<std::string> environment;
  std::vector<char*> argv;
  std::vector<char*> envp;
  int input = -1, output = -1, errors = -1, failure = -1;
  pid_t parent = -1;
};

void close_all(std::initializer_list<int*> fds) {
  const int error = errno;
  for (int* fd : fds) {
    if (*fd >= 0) ::close(std::exchange(*fd, -1));
  }
  errno = error;
}

bool find_program(const std::string& name, std::string& path) {
  const char* value = ::getenv("PATH");
  std::string rest = value != nullptr ? value : "/usr/bin:/bin";
  errno = ENOENT;
  while (true) {
    const std::size_t end = rest.find(':');
    path = rest.substr(0, end) + '/' + name;
    if (path[0] == '/' && ::access(path.c_str(), X_OK) == 0) return true;
    if (end == std::string::npos) break;
    rest.erase(0, end + 1);
  }
  errno = ENOENT;
  return false;
}

void add_environment(const Child_Setup& setup, Image& image) {
  for (const auto& [name, value] : setup.variables) image.environment.push_back(name + '=' + value);
  for (const auto& [name, value] : setup.defaults) {
    if (::getenv(name.c_str()) == nullptr) image.environment.push_back(name + '=' + value);
  }
  const auto is_set = [&](const char* entry) {
    return std::any_of(setup.variables.begin(), setup.variables.end(), [&](const auto& each) {
      return std::strncmp(entry, each.first.c_str(), each.first.size()) == 0 &&
             entry[each.first.size()] == '=';
    });
  };
  const auto is_hidden = [&](const char* entry) {
    return std::any_of(setup.hidden.begin(), setup.hidden.end(), [&](const std::string& start) {
      return std::strncmp(entry, start.c_str(), start.size()) == 0;
    });
  };
  for (char** each = environ; *each != nullptr; ++each) {
    if (!is_set(*each) && !is_hidden(*each)) image.envp.push_back(*each);
  }
  for (std::string& each : image.environment) image.envp.push_back(each.data());
  image.envp.push_back(nullptr);
}

// Runs in the child: calls that are safe behind a fork, and no others.
[[noreturn]] void become(const Image& image) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != image.parent) ::_exit(1);
  ::setsid();
  struct sigaction usual {};
  usual.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; ++signal) ::sigaction(signal, &usual, nullptr);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  if (::dup2(image.input, 0) == 0 && ::dup2(image.output, 1) == 1 && ::dup2(image.errors, 2) == 2 &&
      ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC) == 0) {
    ::execve(image.path.c_str(), image.argv.data(), image.envp.data());
  }
  const int error = errno;
  if (::write(image.failure, &error, sizeof error) < 0) ::_exit(2);
  ::_exit(1);
}

// The errno of what kept the program from running; 0 once it runs.
int failure_of(int fd) {
  int error = 0;
  ssize_t count;
  do {
    count = ::read(fd, &error, sizeof error);
  } while (count < 0 && errno == EINTR);
  return count == static_cast<ssize_t>(sizeof error) ? error : 0;
}

}  // namespace

bool Child_Process::start(const Child_Setup& setup) {
  Image image;
  if (!find_program(setup.arguments.front(), image.path)) return false;
  std::vector<std::string> arguments = setup.arguments;
  for (std::string& each : arguments) image.argv.push_back(each.data());
  image.argv.push_back(nullptr);
  add_environment(setup, image);
  image.parent = ::getpid();
  int in[2] = {-1, -1}, out[2] = {-1, -1}, failure[2] = {-1, -1};
  // A socket, unlike a pipe, can be written without a signal where nobody reads.
  const bool ways = (setup.is_fed ? ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, in) == 0
                                  : (in[0] = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0) &&
                    ::pipe2(out, O_CLOEXEC) == 0 && ::pipe2(failure, O_CLOEXEC) == 0 &&
                    (errors_ = ::memfd_create("said", MFD_CLOEXEC)) >= 0;
  pid_t pid = -1;
  int error = errno;
  if (ways) {
    image.input = in[0];
    image.output = out[1];
    image.errors = errors_;
    image.failure = failure[1];
    run_on_starter([&] {
      pid = ::fork();
      if (pid == 0) become(image);
      error = errno;
    });
  }
  close_all({&in[0], &out[1], &failure[1]});
  if (pid > 0) error = failure_of(failure[0]);
  close_all({&failure[0]});
  pid_ = pid;
  input_ = in[1];
  output_ = out[0];
  patience_ = setup.patience;
  canceled_ = setup.canceled;
  moved_at_ = Clock::now();
  if (pid > 0 && error == 0) watch_ = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  if (watch_ < 0) {
    if (error == 0) error = errno;
    stop();
    close_all({&errors_});
    errno = error;
    return false;
  }
  for (const int fd : {input_, output_}) {
    if (fd >= 0) ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
  }
  return true;
}

bool Child_Process::wait_for(int fd, short events) {
  // The time that the caller takes with what it got doesn't count as waiting.
  const Clock::time_point since = Clock::now();
  while (true) {
    pollfd entry{fd, events, 0};
    const int ready = ::poll(&entry, 1, slice);
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
    if (canceled_ != nullptr && *canceled_) {
      errno = ECANCELED;
      return false;
    }
    if (Clock::now() - since > std::chrono::seconds(patience_)) {
      errno = ETIMEDOUT;
      return false;
    }
  }
}

bool Child_Process::write(const char* data, std::size_t size) {
  while (size != 0) {
    const ssize_t count = ::send(input_, data, size, MSG_NOSIGNAL);
    if (count >= 0) {
      data += count;
      size -= static_cast<std::size_t>(count);
      moved_at_ = Clock::now();
    } else if (errno == EAGAIN) {
      if (!wait_for(input_, POLLOUT)) return false;
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

long long Child_Process::read(char* data, std::size_t size) {
  while (true) {
    const ssize_t count = ::read(output_, data, size);
    if (count >= 0) {
      moved_at_ = Clock::now();
      return count;
    }
    if (errno == EAGAIN) {
      if (!wait_for(output_, POLLIN)) return -1;
    } else if (errno != EINTR) {
      return -1;
    }
  }
}

bool Child_Process::reap(int milliseconds, int& status) {
  pollfd entry{watch_, POLLIN, 0};
  const auto until = Clock::now() + std::chrono::milliseconds(milliseconds);
  while (::poll(&entry, 1, slice) <= 0) {
    if (Clock::now() > until) return false;
  }
  return ::waitpid(pid_, &status, 0) == pid_;
}

bool Child_Process::finish(int& code) {
  int status = 0;
  close_all({&input_});
  if (!wait_for(watch_, POLLIN) || ::waitpid(pid_, &status, 0) != pid_) return false;
  pid_ = -1;
  close_ways();
  code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return true;
}

// Its input stays open until it is dead: an end of it would pass for the end of the data.
void Child_Process::stop() {
  int status;
  if (pid_ > 0 && (watch_ < 0 || ::kill(pid_, SIGTERM) != 0 || !reap(time_to_end, status))) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, &status, 0);
  }
  pid_ = -1;
  close_ways();
  close_all({&errors_});
}

void Child_Process::close_ways() {
  close_all({&watch_, &input_, &output_});
}

long long Child_Process::said_size() const {
  struct stat data {};
  return ::fstat(errors_, &data) == 0 ? data.st_size : 0;
}

std::string Child_Process::said(long long from) const {
  std::string text(most_said, '\0');
  const long long start = std::max(from, said_size() - static_cast<long long>(most_said));
  const ssize_t count = ::pread(errors_, text.data(), text.size(), start);
  text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return text;
}

bool Child_Process::has_ended(int milliseconds) const {
  pollfd entry{watch_, POLLIN, 0};
  return ::poll(&entry, 1, milliseconds) > 0;
}

}  // namespace platform
