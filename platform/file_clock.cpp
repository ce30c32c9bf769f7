#include "platform/file_clock.h"

#include <ctime>

namespace platform {

long long file_clock_second() {
#ifdef CLOCK_REALTIME_COARSE
  constexpr clockid_t clock = CLOCK_REALTIME_COARSE;
#else
  constexpr clockid_t clock = CLOCK_REALTIME;
#endif
  timespec now{};
  ::clock_gettime(clock, &now);
  return now.tv_sec;
}

}  // namespace platform
