#include "agent/job_events.h"

#include <cstring>
#include <exception>
#include <string>

#include "agent/json_text.h"
#include "agent/text.h"
#include "platform/native_path.h"

namespace agent {
namespace {

constexpr const char* unsupported_text = "Unsupported file type";

std::string text_of(const json_spirit::Value& document, const char* key) {
  const auto found = document.find(key);
  return found != document.end() && found->is_string() ? found->get<std::string>() : std::string();
}

// The user knows what he has excluded.
bool was_asked_for(const json_spirit::Value& document) {
  return text_of(document, "message").compare(0, 12, "Excluded by ") == 0;
}

// Why a call of the system failed, behind a message that doesn't say it.
std::string message_of(const json_spirit::Value& document) {
  std::string message = text_of(document, "message");
  // The lister of several threads tells the mode, which says nothing to a person.
  if (message.compare(0, std::strlen(unsupported_text), unsupported_text) == 0)
    return unsupported_text;
  while (!message.empty() && (message.back() == '\n' || message.back() == '.')) message.pop_back();
  const auto error = document.find("errno");
  if (message.rfind("Failed to ", 0) != 0 || error == document.end() || !error->is_number()) {
    return message;
  }
  const int number = error->get<int>();
  return number > 0 ? error_text(message, number) : message;
}

}  // namespace

int Job_Events::handle_event(int code, const json_spirit::Value& document) {
  if (code == MTF::event_corrupt) ++corrupt_;
  try {
    show(code, document);
  } catch (const std::exception&) {
    // Out of memory: the event isn't shown, and the job goes on.
    return -1;
  }
  return 0;
}

json_spirit::Document Job_Events::summary() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return summary_;
}

void Job_Events::show(int code, const json_spirit::Value& document) {
  if (code == MTF::event_summary) {
    const std::lock_guard<std::mutex> guard(mutex_);
    static_cast<json_spirit::Value&>(summary_) = document;
  }
  if (json_) {
    show_json(code, document);
  } else if (code == MTF::event_skipped && !was_asked_for(document)) {
    note("skipped: ", document);
  } else if (code == MTF::event_corrupt) {
    note("corrupt: ", document);
  }
}

// Names of entries as the user knows them.
void Job_Events::show_json(int code, json_spirit::Value document) {
  if (code == MTF::event_skipped || code == MTF::event_corrupt) {
    document["name"] = platform::display_path(text_of(document, "name"));
  }
  notes_.console().line_now("{\"code\":" + std::to_string(code) +
                            ",\"document\":" + json_text(document) + '}');
}

void Job_Events::note(const char* what, const json_spirit::Value& document) {
  const std::string name = escape_name(platform::display_path(text_of(document, "name")));
  const std::string message = message_of(document);
  const std::string why = message.empty() ? "" : ": " + escape_controls(message);
  notes_.add(what + name + why, what + ("..." + why));
}

}  // namespace agent
