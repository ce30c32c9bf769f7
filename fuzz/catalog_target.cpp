// list, and who depends on whom: the catalogs alone.
#include <cstdlib>

#include "fuzz/pieces.h"
#include "platform/native_path.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input_Store store(data, size);
  for (const MTF::Job_Pieces& job : fuzz::jobs_of(store)) {
    unsigned long long faults = 0;
    const auto on_entry = [](const MTF::Job_Entry& entry) {
      if (platform::display_path(entry.path).empty()) std::abort();
    };
    const bool sound = MTF::list_job(store, job, on_entry, [&](const MTF::Fault&) { ++faults; });
    if (sound != (faults == 0)) std::abort();
    std::vector<unsigned int> dependents;
    std::string error;
    MTF::find_dependents(store, job, dependents, error);
  }
  return 0;
}
