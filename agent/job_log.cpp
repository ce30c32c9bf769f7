#include "agent/job_log.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "agent/log_text.h"
#include "agent/text.h"

namespace agent {
namespace {

// A failed check ends in a colon and the stack at that place, which only a developer reads.
std::string without_stack(std::string text) {
  const std::size_t stack = text.find(":\n");
  if (stack != std::string::npos) text.resize(stack);
  return text;
}

bool starts_with(const std::string& text, const char* start) {
  return text.compare(0, std::strlen(start), start) == 0;
}

// The event that a line of the walk stands for: "Unsupported file type, path=NAME, mode=0xC1ED" or
// "Skipped TYPE 'NAME', errno=N: MESSAGE". False for another line.
bool read_skip(const std::string& text, json_spirit::Document& document) {
  const std::string socket = "Unsupported file type, path=", skipped = "Skipped ";
  const bool is_socket = starts_with(text, socket.c_str());
  const std::size_t quote = text.find(" '", skipped.size());
  const std::size_t begin = is_socket ? socket.size() : quote + 2;
  const char* const behind = is_socket ? ", mode=" : "', errno=";
  const std::size_t end = text.rfind(behind);
  const bool is_skip = is_socket || (starts_with(text, skipped.c_str()) && quote != text.npos);
  if (!is_skip || end == text.npos || end < begin) return false;
  const std::string rest = text.substr(end + std::strlen(behind));
  const std::size_t colon = rest.find(": ");
  if (!is_socket && colon == rest.npos) return false;
  const int error = is_socket ? 0 : std::atoi(rest.c_str());
  document["type"] = is_socket ? "file" : text.substr(skipped.size(), quote - skipped.size());
  document["name"] = text.substr(begin, end - begin);
  document["errno"] = error != 0 ? json_spirit::Value(error) : json_spirit::Value();
  document["message"] = is_socket ? "Unsupported file type" : rest.substr(colon + 2);
  return true;
}

}  // namespace

Job_Log::~Job_Log() {
  if (ACE_LOG_MSG->msg_callback() == this) ACE_LOG_MSG->msg_callback(nullptr);
}

void Job_Log::log(ACE_Log_Record& record) {
  if (record.type() < LM_WARNING) return;
  try {
    show(record);
  } catch (const std::bad_alloc&) {
    // Short enough to need no memory.
    notes_.console().note("out of memory");
  }
}

bool Job_Log::is_told_better(const std::string& text) const {
  return starts_with(text, "Failed to get dblk writer type=") ||
         (walk_tells_ && starts_with(text, "Unsupported file type, path="));
}

// The job's result says why a media could not be written.
bool Job_Log::hold_back(const std::string& text) {
  const bool is_vague = starts_with(text, "Failed to write '") || text == "Failed to write media" ||
                        starts_with(text, "Failed to execute backup task, ");
  const std::lock_guard<std::mutex> guard(mutex_);
  if (is_vague && held_back_.empty()) held_back_ = text;
  return is_vague;
}

std::string Job_Log::held_back() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return has_told_ ? "" : held_back_;
}

// An incremental job's walk sends no events.
bool Job_Log::tell_skip(const std::string& text) {
  json_spirit::Document document;
  if (events_ == nullptr || !read_skip(text, document)) return false;
  events_->handle_event(MTF::event_skipped, document);
  return true;
}

void Job_Log::show(ACE_Log_Record& record) {
  std::string text = record.msg_data() ? record.msg_data() : "";
  if (record.type() == LM_EMERGENCY) text = without_stack(text);
  while (!text.empty() && text.back() == '\n') text.pop_back();
  if (is_told_better(text) || hold_back(text) || tell_skip(text)) return;
  // Names hold any byte but NUL and a slash, line feeds included.
  const std::string line =
      (record.type() == LM_WARNING ? "warning: " : "error: ") + escape_name(with_native_path(text));
  notes_.add(line, kind_of(line));
  if (record.type() == LM_WARNING) return;
  const std::lock_guard<std::mutex> guard(mutex_);
  has_told_ = true;
}

void Job_Log::attach() {
  ACE_Log_Msg* log = ACE_LOG_MSG;
  log->clr_flags(ACE_Log_Msg::STDERR | ACE_Log_Msg::LOGGER | ACE_Log_Msg::OSTREAM);
  log->set_flags(ACE_Log_Msg::MSG_CALLBACK);
  log->msg_callback(this);
}

}  // namespace agent
