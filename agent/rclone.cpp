#include "agent/rclone.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

#include "agent/text.h"

namespace agent {
namespace {

constexpr const char* program = "rclone";
// What rclone ends with where a directory or file isn't there.
constexpr int exit_no_directory = 3;
constexpr int exit_no_file = 4;
// Seconds that a call may stand still while nothing comes from the remote, and while data goes
// there: rclone is silent until it has sent the parts that it took.
constexpr int patience = 300;
constexpr int sending_patience = 900;
constexpr auto slow = std::chrono::seconds(30);
constexpr int most_failures = 3;
constexpr int most_tries = 3;
constexpr auto pause_before_retry = std::chrono::seconds(2);
constexpr std::size_t most_troubles = 5;

std::atomic<bool> writing_stopped{false};
std::mutex troubles_mutex;
std::vector<std::string> troubles;

// Parts of 96 MiB let a media of nearly 1 TB into the 10,000 parts that S3 allows. A bucket isn't
// looked for, and made where it is missing, at each call: that takes time, and rights that a key
// for backups needn't have.
const std::vector<std::pair<std::string, std::string>>& defaults() {
  static const std::vector<std::pair<std::string, std::string>> all = {
      {"RCLONE_ASK_PASSWORD", "false"},      {"RCLONE_BUFFER_SIZE", "1Mi"},
      {"RCLONE_CONTIMEOUT", "15s"},          {"RCLONE_TIMEOUT", "1m"},
      {"RCLONE_LOW_LEVEL_RETRIES", "5"},     {"RCLONE_RETRIES", "1"},
      {"RCLONE_S3_CHUNK_SIZE", "96Mi"},      {"RCLONE_S3_NO_CHECK_BUCKET", "true"},
      {"RCLONE_S3_UPLOAD_CONCURRENCY", "2"}, {"RCLONE_STREAMING_UPLOAD_CUTOFF", "8Mi"}};
  return all;
}

bool is_digits(const std::string& line, std::size_t at, const char* pattern) {
  for (; *pattern != '\0'; ++pattern, ++at) {
    if (at >= line.size()) return false;
    const bool digit = line[at] >= '0' && line[at] <= '9';
    if (*pattern == '0' ? !digit : line[at] != *pattern) return false;
  }
  return true;
}

constexpr const char* date_pattern = "0000/00/00 00:00:00 ";

// Removes `start`, with the blanks behind it, from the beginning of `text`.
void drop_start(std::string& text, const char* start) {
  if (text.compare(0, std::strlen(start), start) != 0) return;
  text.erase(0, std::min(text.find_first_not_of(" :", std::strlen(start)), text.size()));
}

// Takes what may be a secret out of every address: all in front of the host and behind the path.
void drop_secrets(std::string& text) {
  for (std::size_t at = text.find("://"); at != std::string::npos; at = text.find("://", at)) {
    at += 3;
    std::size_t end = std::min(text.find_first_of(" \t\n\"'<>", at), text.size());
    const std::size_t query = text.find_first_of("?#", at);
    if (query < end) {
      text.replace(query, end - query, "?...");
      end = query;
    }
    const std::size_t host = text.rfind('@', end);
    if (host != std::string::npos && host >= at && host < end) text.erase(at, host + 1 - at);
  }
}

}  // namespace

std::string engine_words(const std::string& said) {
  std::string message;
  std::size_t at = 0;
  while (at < said.size()) {
    const std::size_t end = std::min(said.find('\n', at), said.size());
    const std::string line = said.substr(at, end - at);
    at = end + 1;
    if (is_digits(line, 0, date_pattern)) {
      message = line.substr(std::strlen(date_pattern));
    } else if (line.find_first_not_of(" \t") != std::string::npos) {
      message += (message.empty() ? "" : " ") + line.substr(line.find_first_not_of(" \t"));
    }
  }
  for (const char* level : {"CRITICAL", "ERROR", "NOTICE"}) drop_start(message, level);
  drop_secrets(message);
  return escape_controls(message);
}

void stop_writing_calls() {
  writing_stopped = true;
}

void note_trouble(const std::string& line) {
  const std::lock_guard<std::mutex> guard(troubles_mutex);
  const bool known = std::find(troubles.begin(), troubles.end(), line) != troubles.end();
  if (!known && troubles.size() < most_troubles) troubles.push_back(line);
}

std::vector<std::string> take_troubles() {
  const std::lock_guard<std::mutex> guard(troubles_mutex);
  return std::exchange(troubles, {});
}

std::string Rclone::path(const std::string& name) const {
  const bool needs_slash = place_.back() != ':' && place_.back() != '/';
  return name.empty() ? place_ : place_ + (needs_slash ? "/" : "") + name;
}

std::unique_ptr<platform::Child_Process> Rclone::start(const std::vector<std::string>& arguments,
                                                       platform::Child_Setup setup,
                                                       std::string& error) {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (given_up_) {
      error = reason_;
      return nullptr;
    }
  }
  const bool is_sending = setup.is_fed || setup.input != nullptr;
  setup.arguments = {program};
  setup.arguments.insert(setup.arguments.end(), arguments.begin(), arguments.end());
  setup.defaults = defaults();
  if (setup.patience == 0) setup.patience = is_sending ? sending_patience : patience;
  if (is_sending) setup.canceled = &writing_stopped;
  auto call = std::make_unique<platform::Child_Process>();
  if (call->start(setup)) return call;
  error = errno == ENOENT ? "rclone, which serves this storage, isn't installed"
                          : error_text("rclone can't be started", errno);
  note_failure(error, true);  // the next would fail as well
  return nullptr;
}

bool Rclone::wait_for_retry(int& tries) const {
  if (given_up_ || ++tries == most_tries) return false;
  std::this_thread::sleep_for(pause_before_retry);
  return true;
}

void Rclone::note_progress() {
  const std::lock_guard<std::mutex> guard(mutex_);
  failures_ = 0;
}

void Rclone::note_failure(const std::string& error, bool was_slow) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (given_up_ || (!was_slow && ++failures_ < most_failures)) return;
  reason_ = error;
  given_up_ = true;
}

std::string Rclone::end_text(const platform::Child_Process& call, int code) const {
  const std::string words = engine_words(call.said());
  if (!words.empty()) return "rclone: " + words;
  return code < 0 ? "rclone was killed" : "rclone ended with " + std::to_string(code);
}

std::string Rclone::broken(platform::Child_Process& call) {
  const int reason = errno;
  const bool was_slow = call.idle() > slow;
  std::string error = error_text("rclone", reason);
  int code = 0;
  // It takes no more: it has ended, or is about to, and says why.
  if (reason == EPIPE && call.finish(code)) {
    error = end_text(call, code);
    note_failure(error, was_slow);
  } else if (reason == ECANCELED) {
    error = "the job was stopped";
  } else if (reason == ETIMEDOUT) {
    const std::string words = engine_words(call.said());
    error =
        "rclone did nothing for " + count_text(static_cast<unsigned>(call.patience()), "second");
    if (!words.empty()) error += "; it last said: " + words;
    note_failure(error, true);
  }
  call.stop();
  return error;
}

Call_End Rclone::finish(platform::Child_Process& call, std::string& error) {
  const bool was_slow = call.idle() > slow;
  int code = 0;
  if (!call.finish(code)) {
    error = broken(call);
    return Call_End::failed;
  }
  if (code == 0) {
    note_progress();
    return Call_End::done;
  }
  error = end_text(call, code);
  if (code == exit_no_directory || code == exit_no_file) return Call_End::missing;
  note_failure(error, was_slow || call.idle() > slow);
  return Call_End::failed;
}

Call_End Rclone::run(const std::vector<std::string>& arguments, std::string* out,
                     std::string& error) {
  const auto call = start(arguments, {}, error);
  if (call == nullptr) return Call_End::failed;
  std::vector<char> bytes(std::size_t{1} << 16);
  if (out != nullptr) out->clear();
  long long count;
  while ((count = call->read(bytes.data(), bytes.size())) > 0) {
    if (out != nullptr) out->append(bytes.data(), static_cast<std::size_t>(count));
  }
  if (count == 0) return finish(*call, error);
  error = broken(*call);
  return Call_End::failed;
}

Call_End Rclone::put(const std::string& name, const std::string& text, std::string& error) {
  platform::Child_Setup setup;
  setup.is_fed = true;
  setup.patience = patience;
  const auto call = start({"rcat", path(name)}, setup, error);
  if (call == nullptr) return Call_End::failed;
  if (call->write(text.data(), text.size())) return finish(*call, error);
  error = broken(*call);
  return Call_End::failed;
}

Call_End Rclone::run_with(const std::vector<std::string>& arguments,
                          const platform::Piece_File* input, const platform::Piece_File* output,
                          std::string& error) {
  platform::Child_Setup setup;
  setup.input = input;
  setup.output = output;
  const auto call = start(arguments, setup, error);
  return call == nullptr ? Call_End::failed : finish(*call, error);
}

}  // namespace agent
