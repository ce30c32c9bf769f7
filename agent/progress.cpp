#include "agent/progress.h"

#include <algorithm>

#include "agent/text.h"

namespace agent {
namespace {

// The share of the bytes that are done, no further than the listing has come.
int percent_of(const MTF::Event_Handler::Progress& now) {
  if (now.total_size == 0) return now.percent;
  const double done = 100.0 * static_cast<double>(now.done_size) / now.total_size;
  return std::min(now.percent, static_cast<int>(std::min(done, 100.0)));
}

}  // namespace

std::string rate_text(unsigned long long bytes, double seconds) {
  if (seconds < 1) return {};
  return ", " + size_text(static_cast<unsigned long long>(bytes / seconds)) + "/s";
}

std::string progress_text(const MTF::Event_Handler::Progress& now, double seconds) {
  std::string text = count_text(now.done_count, "file") + ", " + size_text(now.done_size);
  if (now.percent > 0) text += ", " + std::to_string(percent_of(now)) + '%';
  return text + rate_text(now.done_size, seconds);
}

Progress::Progress(const MTF::Event_Handler& events, Console& console, bool shown)
    : line_(console, [this, &events, &console, shown](double seconds) {
        if (!cancel_told_ && events.is_canceling()) {
          cancel_told_ = true;
          console.note("stopping the job");
        }
        return shown ? progress_text(events.progress(), seconds) : std::string();
      }) {}

}  // namespace agent
