// The signals that ask a job to stop, and those that must not end it.
#pragma once

namespace platform {

// From now on to the end of the process SIGINT, SIGTERM and SIGHUP call `on_stop` with 1 at the
// first of them and 2 at the second; the third ends the process as it would have at once. One that
// was ignored before stays ignored. `on_stop` runs as a signal handler: it may do no more than
// store to lock-free atomics. SIGPIPE and SIGXFSZ are ignored, so that they come back as errors of
// the calls that caused them.
void watch_stop_signals(void (*on_stop)(int nth));

}  // namespace platform
