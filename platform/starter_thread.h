// The thread that makes child processes.
#pragma once

#include <functional>

namespace platform {

// Runs `task` on a thread that lives as long as the process, and waits for it. The kernel can end a
// child together with the thread that made it: so one that never ends makes them all.
void run_on_starter(const std::function<void()>& task);

}  // namespace platform
