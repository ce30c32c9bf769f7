#include "agent/rclone.h"

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <thread>
#include <utility>

#include "agent/engine_words.h"
#include "agent/random_id.h"
#include "agent/rclone_server.h"
#include "agent/text.h"

namespace agent {
namespace {

constexpr const char* program = "rclone";
// Seconds that a call may stand still while nothing comes from the remote, and while data goes
// there: rclone is silent until it has sent the parts that it took.
constexpr int patience = 300;
constexpr int sending_patience = 900;
constexpr int starting_patience = 60;
constexpr int not_found = 404;
constexpr const char* stopped_text = "the job was stopped";
constexpr auto slow = std::chrono::seconds(30);
constexpr int most_failures = 3;
constexpr int most_tries = 3;
constexpr auto pause_before_retry = std::chrono::seconds(2);
constexpr std::size_t most_troubles = 5;

std::atomic<bool> writing_stopped{false};
std::mutex troubles_mutex;
std::vector<std::string> troubles;

// Parts of 96 MiB let a media of 1 TB into the 10,000 parts that S3 allows. A bucket isn't
// looked for, and made where it is missing, at each call: that takes time, and rights that a key
// for backups needn't have. Up to 32 MiB go up as one request, where parts take three.
const std::vector<std::pair<std::string, std::string>>& defaults() {
  static const std::vector<std::pair<std::string, std::string>> all = {
      {"RCLONE_ASK_PASSWORD", "false"},      {"RCLONE_BUFFER_SIZE", "1Mi"},
      {"RCLONE_CONTIMEOUT", "15s"},          {"RCLONE_TIMEOUT", "1m"},
      {"RCLONE_LOW_LEVEL_RETRIES", "5"},     {"RCLONE_RETRIES", "1"},
      {"RCLONE_S3_CHUNK_SIZE", "96Mi"},      {"RCLONE_S3_NO_CHECK_BUCKET", "true"},
      {"RCLONE_S3_UPLOAD_CONCURRENCY", "2"}, {"RCLONE_STREAMING_UPLOAD_CUTOFF", "32Mi"}};
  return all;
}

// Settings of the user's that are made for other calls: they would hide pieces, so that a job takes
// their names, mix other text into what is read, or send elsewhere what rclone says. Those of a
// server of his own aren't for this one.
const std::vector<std::string>& hidden() {
  static const std::vector<std::string> all = {"RCLONE_DISCARD",
                                               "RCLONE_DUMP",
                                               "RCLONE_EXCLUDE",
                                               "RCLONE_FILES_FROM",
                                               "RCLONE_FILTER",
                                               "RCLONE_HASH_FILTER",
                                               "RCLONE_HEAD=",
                                               "RCLONE_INCLUDE",
                                               "RCLONE_LOG_",
                                               "RCLONE_MAX_AGE",
                                               "RCLONE_MAX_SIZE",
                                               "RCLONE_METADATA_EXCLUDE",
                                               "RCLONE_METADATA_FILTER",
                                               "RCLONE_METADATA_INCLUDE",
                                               "RCLONE_MIN_AGE",
                                               "RCLONE_MIN_SIZE",
                                               "RCLONE_PROGRESS",
                                               "RCLONE_QUIET",
                                               "RCLONE_RC",
                                               "RCLONE_SEPARATOR",
                                               "RCLONE_SIZE_ONLY",
                                               "RCLONE_STATS",
                                               "RCLONE_SYSLOG",
                                               "RCLONE_TAIL",
                                               "RCLONE_USE_JSON_LOG",
                                               "RCLONE_VERBOSE"};
  return all;
}

platform::Child_Setup new_setup() {
  platform::Child_Setup setup;
  setup.arguments = {program};
  setup.defaults = defaults();
  setup.hidden = hidden();
  return setup;
}

std::string start_fault() {
  return errno == ENOENT ? "rclone, which serves this storage, isn't installed"
                         : error_text("rclone can't be started", errno);
}

std::string silence_text(int seconds, const std::string& words) {
  const std::string text =
      "rclone did nothing for " + count_text(static_cast<unsigned>(seconds), "second");
  return words.empty() ? text : text + "; it last said: " + words;
}

// The line for a process that ended with `code`, -1 where a signal ended it.
std::string end_text(const platform::Child_Process& process, int code) {
  if (code < 0) return "rclone was killed";
  const std::string words = engine_words(process.said());
  return words.empty() ? "rclone ended with " + std::to_string(code) : "rclone: " + words;
}

// What the server answers in place of a result, else `words`, what it said meanwhile.
std::string answer_text(const Http_Call& call, const std::string& words) {
  const nlohmann::json answer = nlohmann::json::parse(call.answer(), nullptr, false);
  const auto error = answer.is_object() ? answer.find("error") : answer.end();
  if (error != answer.end() && error->is_string()) {
    return "rclone: " + engine_words(error->get<std::string>());
  }
  return words.empty() ? "rclone answered with " + std::to_string(call.status())
                       : "rclone: " + words;
}

// The line for an answer that broke off. `words` are what the server said meanwhile.
std::string break_text(const platform::Child_Process& server, const std::string& words) {
  constexpr int time_to_end = 500;  // milliseconds in which the end of a process shows
  if (!words.empty()) return "rclone: " + words;
  return server.has_ended(time_to_end) ? "rclone was killed" : "rclone: the object ends too early";
}

Http_Call::Take append_to(std::string& out) {
  return [&out](const char* data, std::size_t size) {
    out.append(data, size);
    return true;
  };
}

}  // namespace

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

Rclone::Rclone(std::string place) : place_(std::move(place)), remote_("mtf" + random_id()) {}

std::string Rclone::path(const std::string& name) const {
  const bool needs_slash = place_.back() != ':' && place_.back() != '/';
  return place_ + (needs_slash ? "/" : "") + name;
}

// An address can't hold every path; the remote that stands for the place has a plain name.
std::string Rclone::object_path(const std::string& name) const {
  return url_text('[' + remote_ + ":]") + '/' + url_text(name);
}

bool Rclone::may_call(std::string& error) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (given_up_) error = reason_;
  return !given_up_;
}

std::unique_ptr<platform::Child_Process> Rclone::start(const std::vector<std::string>& arguments,
                                                       bool is_sending, std::string& error) {
  if (!may_call(error)) return nullptr;
  platform::Child_Setup setup = new_setup();
  setup.arguments.insert(setup.arguments.end(), arguments.begin(), arguments.end());
  setup.is_fed = is_sending;
  setup.patience = is_sending ? sending_patience : patience;
  if (is_sending) setup.canceled = &writing_stopped;
  auto stream = std::make_unique<platform::Child_Process>();
  if (stream->start(setup)) return stream;
  error = start_fault();
  note_failure(error, true);  // the next would fail as well
  return nullptr;
}

std::unique_ptr<platform::Child_Process> Rclone::start_writing(const std::string& name,
                                                               std::string& error) {
  return start({"rcat", path(name)}, true, error);
}

std::unique_ptr<platform::Child_Process> Rclone::start_reading(const std::string& name,
                                                               unsigned long long offset,
                                                               unsigned long long count,
                                                               std::string& error) {
  return start(
      {"cat", "--offset", std::to_string(offset), "--count", std::to_string(count), path(name)},
      false, error);
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

void Rclone::note_failure(const std::string& error, bool ends_all) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (given_up_ || (!ends_all && ++failures_ < most_failures)) return;
  reason_ = error;
  given_up_ = true;
}

std::string Rclone::broken(platform::Child_Process& stream) {
  const int reason = errno;
  const bool was_slow = stream.idle() > slow;
  std::string error = error_text("rclone", reason);
  int code = 0;
  // It takes no more: it has ended, or is about to, and says why.
  if (reason == EPIPE && stream.finish(code)) {
    error = end_text(stream, code);
    note_failure(error, was_slow);
  } else if (reason == ECANCELED) {
    error = stopped_text;
  } else if (reason == ETIMEDOUT) {
    error = silence_text(stream.patience(), engine_words(stream.said()));
    note_failure(error, true);
  }
  stream.stop();
  return error;
}

Call_End Rclone::finish(platform::Child_Process& stream, std::string& error) {
  const bool was_slow = stream.idle() > slow;
  int code = 0;
  if (!stream.finish(code)) {
    error = broken(stream);
    return Call_End::failed;
  }
  if (code == 0) {
    note_progress();
    return Call_End::done;
  }
  error = end_text(stream, code);
  note_failure(error, was_slow || stream.idle() > slow);
  return Call_End::failed;
}

// The server, which is started where none runs; null if that fails.
Rclone::Server Rclone::server(std::string& error) {
  if (!may_call(error)) return nullptr;
  const std::lock_guard<std::mutex> guard(server_mutex_);
  if (server_ != nullptr && !server_->process().has_ended(0)) return server_;
  auto started = std::make_shared<Rclone_Server>();
  platform::Child_Setup setup = new_setup();
  setup.patience = starting_patience;
  if (started->start(setup, remote_, place_)) return server_ = std::move(started);
  const std::string fault = start_fault();
  const std::string words = engine_words(started->process().said());
  error = words.empty() ? fault : "rclone: " + words;
  note_failure(error, true);
  return nullptr;
}

void Rclone::drop(const Server& server) {
  const std::lock_guard<std::mutex> guard(server_mutex_);
  if (server_ == server) server_.reset();
}

Call_End Rclone::serve(const std::string& path, const Prepare& prepare, const Http_Call::Take& take,
                       int seconds, std::string& error) {
  const Server server = this->server(error);
  if (server == nullptr) return Call_End::failed;
  const long long said = server->process().said_size();
  const auto words = [&] { return engine_words(server->process().said(said)); };
  Http_Call call(server->url() + path, server->login());
  prepare(call);
  const Http_End end = call.run(seconds, call.is_upload() ? &writing_stopped : nullptr, take);
  if (end == Http_End::answered && call.is_done()) {
    note_progress();
    return Call_End::done;
  }
  switch (end) {
    case Http_End::answered:
      error = answer_text(call, words());
      if (call.status() == not_found) return Call_End::missing;
      break;
    case Http_End::canceled:
      error = stopped_text;
      return Call_End::failed;
    case Http_End::not_taken:
      error = error_text("a working file", errno);
      return Call_End::failed;
    case Http_End::timed_out:
      error = silence_text(seconds, words());
      drop(server);
      break;
    case Http_End::broken:
      error = break_text(server->process(), words());
  }
  note_failure(error, end == Http_End::timed_out || call.longest_idle() > slow);
  return Call_End::failed;
}

Call_End Rclone::list(std::vector<Remote_Object>& objects, std::string& error) {
  const nlohmann::json request = {
      {"fs", remote_ + ':'}, {"remote", ""}, {"opt", {{"filesOnly", true}, {"noMimeType", true}}}};
  std::string listing;
  const Call_End end = serve(
      "operations/list", [&](Http_Call& call) { call.send_json(request.dump()); },
      append_to(listing), patience, error);
  if (end != Call_End::done || parse_listing(listing, objects)) return end;
  error = "what rclone lists can't be read";
  return Call_End::failed;
}

Call_End Rclone::upload(const Prepare& prepare, int seconds, std::string& error) {
  std::string answer;
  return serve("operations/uploadfile?fs=" + url_text(remote_ + ':') + "&remote=", prepare,
               append_to(answer), seconds, error);
}

Call_End Rclone::put(const std::string& name, const std::string& text, std::string& error) {
  return upload([&](Http_Call& call) { call.send_text(name, text); }, patience, error);
}

Call_End Rclone::put_file(const std::string& name, platform::Piece_File& file, std::string& error) {
  return upload([&](Http_Call& call) { call.send_file(name, file); }, sending_patience, error);
}

Call_End Rclone::get(const std::string& name, unsigned long long offset, unsigned long long count,
                     std::string& out, std::string& error) {
  const std::size_t most = out.size() + count;
  bool fits = true;
  const auto take = [&](const char* data, std::size_t size) {
    fits = size <= most - out.size();
    if (fits) out.append(data, size);
    return fits;
  };
  const Call_End end = serve(
      object_path(name), [&](Http_Call& call) { call.ask_for(offset, count); }, take, patience,
      error);
  if (!fits) error = "rclone gave more than it was asked for";
  return end;
}

Call_End Rclone::get_all(const std::string& name, const Http_Call::Take& take, std::string& error) {
  return serve(
      object_path(name), [](Http_Call&) {}, take, patience, error);
}

Call_End Rclone::remove(const std::string& name, std::string& error) {
  const nlohmann::json request = {{"fs", remote_ + ':'}, {"remote", name}};
  std::string answer;
  return serve(
      "operations/deletefile", [&](Http_Call& call) { call.send_json(request.dump()); },
      append_to(answer), patience, error);
}

}  // namespace agent
