#include "platform/signals.h"

#include <signal.h>

#include <atomic>
#include <initializer_list>

namespace platform {
namespace {

constexpr int last_call = 3;

std::atomic<void (*)(int)> stop_callback{nullptr};
std::atomic<int> stop_count{0};

void handle_stop(int signal) {
  const int nth = stop_count.fetch_add(1) + 1;
  if (nth < last_call) {
    if (const auto callback = stop_callback.load()) callback(nth);
    return;
  }
  struct sigaction usual {};
  usual.sa_handler = SIG_DFL;
  ::sigaction(signal, &usual, nullptr);
  // Blocked while this handler runs, so it ends the process right behind it.
  ::raise(signal);
}

}  // namespace

void watch_stop_signals(void (*on_stop)(int nth)) {
  stop_count = 0;
  stop_callback = on_stop;
  struct sigaction action {};
  ::sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  action.sa_handler = handle_stop;
  for (const int each : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before;
    ::sigaction(each, nullptr, &before);
    if (before.sa_handler != SIG_IGN) ::sigaction(each, &action, nullptr);
  }
  action.sa_handler = SIG_IGN;
  for (const int each : {SIGPIPE, SIGXFSZ}) ::sigaction(each, &action, nullptr);
}

}  // namespace platform
