// Walks a tree and prints what that took: the wall time of a job's walk whose blocks are dropped at
// once, or the heap that the lister needs for a whole tree.
//   bench_scan walk TREE THREADS CACHE_DIR
//   bench_scan heap TREE THREADS CACHE_DIR
#include <ace/Log_Msg.h>
#include <malloc.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "mtf/writer/backup_source_lister_factory.h"
#include "mtf/writer/source_producer.h"

namespace {

using Clock = std::chrono::steady_clock;

// The number of blocks, 0 if the walk failed.
unsigned long long walk(const std::string& tree, int threads, const std::string& cache_dir) {
  const std::list<std::string> sources{tree};
  MTF::Source_Producer producer(1, false, nullptr, nullptr);
  producer.exclude_list({"/nothing"});
  producer.init(&sources, nullptr,
                MTF::Ref_Ptr<MTF::Writer_Hardlink_Map>(new MTF::Writer_Hardlink_Map), nullptr,
                cache_dir, threads, 0);
  producer.set_queue_marks();
  if (producer.activate(0, 1) != 0) return 0;
  unsigned long long blocks = 0;
  MTF::Cat_Blk* block = nullptr;
  while (producer.msg_queue()->dequeue_head(block) != -1) {
    const std::unique_ptr<MTF::Cat_Blk> owned(block);
    ++blocks;
    if (block->hdr().type() == MTF::block_fend) break;
  }
  producer.wait();
  return producer.last_error() == 0 ? blocks : 0;
}

// Bytes that the allocator has taken from the system.
std::size_t heap() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.arena + info.hblkhd;
}

// The heap when all of the tree stands in the store and nothing has been read; 0 on failure.
std::size_t listed_heap(const std::string& tree, int threads, const std::string& cache_dir) {
  std::list<MTF::source_entry> list;
  std::list<std::string> excludes;
  if (!MTF::to_source_list_type({tree}, excludes, nullptr, nullptr, list)) return 0;
  const std::size_t before = heap();
  MTF::Backup_Source_Lister lister(MTF::Backup_Source_Lister_Factory::create("mmap", cache_dir),
                                   threads, nullptr, nullptr, nullptr);
  if (!lister.open(list) || lister.wait() != 0) return 0;
  return heap() - before;
}

int fail(const char* text) {
  std::fprintf(stderr, "%s\n", text);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return fail("usage: bench_scan walk|heap TREE THREADS CACHE_DIR");
  const int threads = std::atoi(argv[3]);
  if (std::string(argv[1]) == "heap") {
    const std::size_t bytes = listed_heap(argv[2], threads, argv[4]);
    if (bytes == 0) return fail("the walk failed");
    std::printf("%.1f\n", static_cast<double>(bytes) / 1e6);
    return 0;
  }
  // The walk logs a line of its own.
  ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
  const auto start = Clock::now();
  const unsigned long long blocks = walk(argv[2], threads, argv[4]);
  const std::chrono::duration<double> time = Clock::now() - start;
  if (blocks == 0) return fail("the walk failed");
  std::printf("%.3f %llu\n", time.count(), blocks);
  return 0;
}
