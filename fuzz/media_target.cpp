// verify and list --from-media, of medias with their catalogs.
#include <cstdlib>

#include "fuzz/pieces.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input_Store store(data, size);
  for (const MTF::Job_Pieces& job : fuzz::jobs_of(store)) {
    unsigned long long faults = 0;
    const MTF::Fault_Sink on_fault = [&](const MTF::Fault&) { ++faults; };
    const MTF::Verify_Summary summary = MTF::verify_job(store, job, on_fault);
    if (summary.faults != faults) std::abort();
    MTF::list_job_from_media(
        store, job, [](const MTF::Job_Entry&) {}, on_fault);
    // What verify calls right is readable.
    if (summary.faults == 0 && !MTF::list_job(
                                   store, job, [](const MTF::Job_Entry&) {}, nullptr)) {
      std::abort();
    }
  }
  return 0;
}
