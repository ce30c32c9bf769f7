// Processes of this machine.
#pragma once

#include <string>

namespace platform {

unsigned int current_process();

// When the process started, in ticks since the machine did; false if there is no such process. With
// its number this tells it from every other one that had the number before.
bool process_start(unsigned int process, unsigned long long& ticks);

// The same for all processes that see each other by their numbers until the machine starts anew;
// empty where that can't be told.
std::string process_space();

}  // namespace platform
