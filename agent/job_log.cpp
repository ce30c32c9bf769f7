#include "agent/job_log.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <string>

#include "agent/text.h"

namespace agent {
namespace {

constexpr std::size_t remembered_lines = 1000;

// A failed check ends in a colon and the stack at that place, which only a developer reads.
std::string without_stack(std::string text) {
  const std::size_t stack = text.find(":\n");
  if (stack != std::string::npos) text.resize(stack);
  return text;
}

bool starts_with(const std::string& text, const char* start) {
  return text.compare(0, std::strlen(start), start) == 0;
}

}  // namespace

Job_Log::~Job_Log() {
  if (ACE_LOG_MSG->msg_callback() == this) ACE_LOG_MSG->msg_callback(nullptr);
  try {
    flush();
  } catch (const std::bad_alloc&) {
    // The counts are lost; each line itself was shown.
  }
}

void Job_Log::log(ACE_Log_Record& record) {
  if (record.type() < LM_WARNING) return;
  try {
    show(record);
  } catch (const std::bad_alloc&) {
    // Short enough to need no memory.
    console_.note("out of memory");
  }
}

bool Job_Log::is_told_better(const std::string& text) const {
  return starts_with(text, "Failed to get dblk writer type=") ||
         (walk_tells_ && starts_with(text, "Unsupported file type, path="));
}

void Job_Log::show(ACE_Log_Record& record) {
  std::string text = record.msg_data() ? record.msg_data() : "";
  if (record.type() == LM_EMERGENCY) text = without_stack(text);
  while (!text.empty() && text.back() == '\n') text.pop_back();
  if (is_told_better(text)) return;
  // Names hold any byte but NUL and a slash, line feeds included.
  const std::string line =
      (record.type() == LM_WARNING ? "warning: " : "error: ") + escape_controls(text);
  if (is_new(line)) console_.note(line);
}

void Job_Log::flush() {
  const std::lock_guard<std::mutex> guard(mutex_);
  for (const auto& [line, count] : repeats_) {
    if (count != 0) console_.note(line + " (" + count_text(count, "more time") + ")");
  }
  repeats_.clear();
}

bool Job_Log::is_new(const std::string& line) {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto found = repeats_.find(line);
  if (found != repeats_.end()) {
    ++found->second;
    return false;
  }
  if (repeats_.size() < remembered_lines) repeats_[line] = 0;
  return true;
}

void Job_Log::attach() {
  ACE_Log_Msg* log = ACE_LOG_MSG;
  log->clr_flags(ACE_Log_Msg::STDERR | ACE_Log_Msg::LOGGER | ACE_Log_Msg::OSTREAM);
  log->set_flags(ACE_Log_Msg::MSG_CALLBACK);
  log->msg_callback(this);
}

}  // namespace agent
