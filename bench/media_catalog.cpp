// Times a whole job of a tree and the catalog that its media carries, each the best of five:
// media_catalog TREE WORK_DIRECTORY FILES
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "mtf/writer/backup.h"
#include "mtf/writer/type1_mbc_writer.h"
#include "services/json_spirit.h"

namespace {

using namespace MTF;

// Takes everything and keeps nothing.
struct Null_Writer : IWriter {
  unsigned long long bytes = 0;
  unsigned long long write(const char*, unsigned long long size) override {
    bytes += size;
    return size;
  }
  bool flush() override { return true; }
  unsigned long long write_filemark(unsigned long long) override { return 0; }
  unsigned long long size() override { return bytes; }
  std::string err_msg() override { return {}; }
};

struct Null_Channel : Channel {
  Null_Writer sink;
  void disconnect() override {}
  bool open(const char*, int, int) override { return sink.bytes = 0, true; }
  bool close() override { return true; }
  bool remove(const char*) override { return true; }
  IWriter* writer() override { return &sink; }
  IReader* reader() override { return nullptr; }
  std::string err_msg() override { return {}; }
};

struct Factory : Channel_Factory {
  Ref_Ptr<Channel> create() override { return Ref_Ptr<Channel>(new Null_Channel); }
};

struct Events : Event_Handler {
  int handle_event(int, const json_spirit::Value&) override { return 0; }
};

template <class Work>
double best_seconds(const Work& work) {
  double best = 1e9;
  for (int round = 0; round < 5; ++round) {
    const auto start = std::chrono::steady_clock::now();
    if (!work()) std::exit(1);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    best = std::min(best, time.count());
  }
  return best;
}

bool run_job(const char* tree, const char* work_dir) {
  Metadata metadata;
  Backup backup(Ref_Ptr<Event_Handler>(new Events), metadata, nullptr);
  const std::list<std::string> excludes{"/proc"};  // not the default: the tree may be in /dev/shm
  backup.exclude_list(&excludes);
  backup.add_source(tree);
  backup.backup_read(false);
  Job_Settings settings;
  settings.minor_resource_id = "bench";
  settings.channel_factory = Ref_Ptr<Channel_Factory>(new Factory);
  settings.cache_dir = work_dir;
  const bool done = backup.init(settings) && backup.full();
  backup.clean();
  return done;
}

// All that a job of `files` files does for the catalog of its media.
bool write_catalog(const char* work_dir, unsigned long long files) {
  Backup_Option opt;
  opt.job_tmp_dir = work_dir;
  opt.minor_resource_id = "bench";
  Backup_Context ctx(opt.pba_shift, opt.fla_shift);
  Type1_MBC_Writer catalog(&opt, &ctx);
  Buffer tape(8), sset(8), volume(8), directory(8), file(8), eset(8);
  if (!catalog.open() || !catalog.add_tape_blk(Tape_Blk(tape, true)) ||
      !catalog.add_sset_blk(SSet_Blk(sset, true))) {
    return false;
  }
  Vol_Blk vol(volume, true);
  vol.device_name("/");
  if (!catalog.add_vol_blk(vol)) return false;
  const Dir_Blk dir(directory, true);
  const File_Blk blk(file, true);
  const std::string directory_name("dev\0shm\0tree\0d00000\0", 20);
  const std::string name = "file0000000.txt";
  for (unsigned long long i = 0; i < files; ++i) {
    if (i % 100 == 0 && !catalog.add_dir_blk(dir, directory_name)) return false;
    if (!catalog.add_file_blk(blk, name)) return false;
  }
  Null_Writer writer;
  return catalog.add_eset_blk(ESet_Blk(eset, true)) && catalog.write(writer);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const unsigned long long files = std::strtoull(argv[3], nullptr, 10);
  const double job = best_seconds([&] { return run_job(argv[1], argv[2]); });
  const double catalog = best_seconds([&] { return write_catalog(argv[2], files); });
  std::printf("job with catalog  %8.3f s\ncatalog alone     %8.3f s\n", job, catalog);
  std::printf("the catalog takes %8.2f %% of the job without it\n",
              100 * catalog / (job - catalog));
  return 0;
}
