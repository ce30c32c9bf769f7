#include "agent/job_log.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>

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

void Job_Log::show(ACE_Log_Record& record) {
  std::string text = record.msg_data() ? record.msg_data() : "";
  if (record.type() == LM_EMERGENCY) text = without_stack(text);
  while (!text.empty() && text.back() == '\n') text.pop_back();
  if (is_told_better(text)) return;
  // Names hold any byte but NUL and a slash, line feeds included.
  const std::string line =
      (record.type() == LM_WARNING ? "warning: " : "error: ") + escape_name(with_native_path(text));
  notes_.add(line, kind_of(line));
}

void Job_Log::attach() {
  ACE_Log_Msg* log = ACE_LOG_MSG;
  log->clr_flags(ACE_Log_Msg::STDERR | ACE_Log_Msg::LOGGER | ACE_Log_Msg::OSTREAM);
  log->set_flags(ACE_Log_Msg::MSG_CALLBACK);
  log->msg_callback(this);
}

}  // namespace agent
