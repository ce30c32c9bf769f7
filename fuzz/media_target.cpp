// verify, list --from-media and a look inside, of medias with their catalogs.
#include <cstdlib>

#include "fuzz/pieces.h"
#include "mtf/reader/job_view.h"

namespace {

// Reads some of each file.
void look_inside(MTF::IPiece_Store& store, const MTF::Job_Pieces& job) {
  const auto view = MTF::Job_View::open(store, job, nullptr, nullptr);
  const MTF::View_Tree& tree = view->tree();
  std::string why;
  char data[4096];
  for (MTF::View_Tree::Number number = 0; number < tree.size() && number < 200; ++number) {
    if (tree.find(tree.node(number).parent, tree.name(number)) != number) continue;
    if (view->attributes(number, why) == nullptr && why.empty()) std::abort();
    const auto file = view->open_file(number, why);
    unsigned long long place = 0;
    for (const unsigned long long at : {0ULL, tree.node(number).size / 2}) {
      if (file != nullptr && file->read(at, data, sizeof data, nullptr, why) >= 0) {
        file->seek(at, true, nullptr, place, why);
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input_Store store(data, size);
  for (const MTF::Job_Pieces& job : fuzz::jobs_of(store)) {
    unsigned long long faults = 0;
    const MTF::Fault_Sink on_fault = [&](const MTF::Fault&) { ++faults; };
    const MTF::Verify_Summary summary = MTF::verify_job(store, job, on_fault);
    if (summary.faults != faults) std::abort();
    MTF::list_job_from_media(
        store, job, [](const MTF::Job_Entry&) {}, on_fault);
    look_inside(store, job);
    // What verify calls right is readable.
    if (summary.faults == 0 && !MTF::list_job(
                                   store, job, [](const MTF::Job_Entry&) {}, nullptr)) {
      std::abort();
    }
  }
  return 0;
}
