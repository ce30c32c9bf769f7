#include "mtf/writer/read_ahead.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "services/thread_start.h"

namespace MTF {
namespace {

constexpr int thread_count = 4;
constexpr unsigned long long most_of_file = 4 << 20;
constexpr unsigned long long most_size_ahead = 16 << 20;

// Measuring takes a call of the system, so it is for many blocks at once. Fewer reads than these
// are strays, such as the allocation maps of the disk that is written to.
constexpr unsigned int measured_blocks = 64;
constexpr unsigned long long least_reads = 16 << 10;
// As many measurements without reads as see all files that are ahead.
constexpr unsigned int idle_limit = 2;

}  // namespace

Read_Ahead::Read_Ahead(Disk_Reads disk_reads) : disk_reads_(disk_reads), own_reads_(disk_reads()) {}

Read_Ahead::~Read_Ahead() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

bool Read_Ahead::is_wanted() {
  if (!is_off_ && ++blocks_ == measured_blocks) measure();
  return is_active_;
}

void Read_Ahead::measure() {
  blocks_ = 0;
  const unsigned long long own = disk_reads_();
  const unsigned long long ahead = reads_ahead_;
  const unsigned long long reads = own - own_reads_ + ahead - ahead_reads_;
  own_reads_ = own;
  ahead_reads_ = ahead;
  if (reads >= least_reads) {
    idle_measurements_ = 0;
    is_active_ = is_active_ || start();
  } else if (++idle_measurements_ >= idle_limit) {
    is_active_ = false;
  }
}

bool Read_Ahead::start() {
  const auto body = [this] { work(); };
  return attempt([&] { return !threads_.empty() || start_threads(thread_count, body, threads_); });
}

// The job goes on without reading ahead where `step` fails.
template <class Step>
bool Read_Ahead::attempt(Step step) {
  try {
    is_off_ = is_off_ || !step();
  } catch (const std::exception&) {
    is_off_ = true;
  }
  is_active_ = is_active_ && !is_off_;
  return !is_off_;
}

bool Read_Ahead::has_room() const {
  return added_ - removed_ < most_files && size_ < most_size_ahead;
}

void Read_Ahead::add(const std::string& path, unsigned long long size) {
  Item& next = item(added_);
  next.path.clear();
  next.size = 0;
  if (is_active_ && !path.empty()) {
    attempt([&] {
      next.path = path;
      next.size = std::min(size, most_of_file);
      return true;
    });
  }
  size_ += next.size;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++added_;
  }
  if (next.size != 0) changed_.notify_one();
}

void Read_Ahead::remove_oldest() {
  size_ -= item(removed_).size;
  const std::lock_guard<std::mutex> lock(mutex_);
  ++removed_;
  // What nobody has begun would come too late.
  begun_ = std::max(begun_, removed_);
}

void Read_Ahead::work() {
  std::string path;
  unsigned long long reads = disk_reads_();
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopping_ || begun_ != added_; });
    if (stopping_) return;
    Item& next = item(begun_++);
    if (next.path.empty()) continue;
    path.swap(next.path);
    const unsigned long long size = next.size;
    lock.unlock();
    try {
      platform::read_file_ahead(path, size);
    } catch (const std::exception&) {
      // The writer reads it all the same.
    }
    const unsigned long long now = disk_reads_();
    reads_ahead_ += now - std::exchange(reads, now);
    lock.lock();
  }
}

}  // namespace MTF
