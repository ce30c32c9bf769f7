// rebuild, of every catalog of the input: what it makes is sound and lists no later job.
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>

#include "fuzz/pieces.h"
#include "mtf/rescue/rebuild.h"
#include "services/piece_name.h"

namespace {

// The input's pieces, with the catalogs that were made again in place of its own.
class Rebuilt_Store : public fuzz::Input_Store {
 public:
  using Input_Store::Input_Store;

  std::unique_ptr<MTF::IRandom_Reader> open(const std::string& name, std::string& error) override {
    const auto made = made_.find(name);
    return made == made_.end() ? Input_Store::open(name, error)
                               : std::make_unique<fuzz::View_Reader>(made->second);
  }

  void add(const std::string& name, const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    made_[name].assign(std::istreambuf_iterator<char>(in), {});
  }

 private:
  std::map<std::string, std::string> made_;
};

const std::string& local_path() {
  static const char* const place = std::getenv("TMPDIR");
  static const std::string path = std::string(place != nullptr ? place : "/dev/shm") +
                                  "/mtf-rebuilt-" + std::to_string(::getpid());
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Rebuilt_Store store(data, size);
  for (const MTF::Job_Pieces& job : fuzz::jobs_of(store)) {
    for (const unsigned long long channel : job.channels) {
      MTF::Rebuild_Summary summary;
      std::string name, error;
      if (!MTF::rebuild_catalog(store, job, channel, local_path(), summary, nullptr, error)) {
        if (error.empty()) std::abort();
        continue;
      }
      MTF::cat_name(job.stem, job.seq, channel, name);
      store.add(name, local_path());
      if (MTF::catalog_state(store, job, channel) != MTF::Catalog_State::sound) std::abort();
    }
    MTF::verify_job(store, job, nullptr);
  }
  ::unlink(local_path().c_str());
  return 0;
}
