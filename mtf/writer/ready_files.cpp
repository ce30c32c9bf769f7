#include "mtf/writer/ready_files.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include "services/thread_start.h"

namespace MTF {
namespace {

constexpr int most_compressing_threads = 8;

// Reads and compresses the file at `out.path`. False where the writer has to look at it: it can't
// be opened, is empty, large, or was changed meanwhile.
bool prepare(Compressor& compressor, Ready_Files::File& out) {
  platform::File file;
  if (!file.open_read(out.path)) return false;
  const long long size = file.stat().st_size;
  if (size <= 0 || size > Ready_Files::largest_file) return false;
  const auto length = static_cast<unsigned int>(size);
  if (!out.content.expand(length)) return false;
  if (file.read(out.content.data(), length) != size) return false;
  out.content.size(length);
  out.facts = file.facts();
  return compressor.compress(out.content, out.compressed) >= 0;
}

}  // namespace

Ready_Files::Ready_Files(unsigned short method, int level, int threads)
    : method_(method), level_(level), thread_count_(std::min(threads, most_compressing_threads)) {}

Ready_Files::~Ready_Files() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_stopping_ = true;
  }
  added_files_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

// Blocks are taken many at a time, so that a thread is woken once for many.
bool Ready_Files::is_wanted() {
  if (is_off_ || added_ - removed_ > most_files / 2) return false;
  if (!is_started_) is_off_ = !start();
  return !is_off_;
}

bool Ready_Files::start() {
  is_started_ = true;
  const auto body = [this] { work(); };
  try {
    return make_compressors() && start_threads(thread_count_ - 1, body, threads_);
  } catch (const std::exception&) {
    return false;
  }
}

bool Ready_Files::make_compressors() {
  for (int i = 0; i < thread_count_; ++i) {
    compressors_.push_back(Compression_Factory::create(method_, level_));
    if (compressors_.back() == nullptr) return false;
  }
  return true;
}

void Ready_Files::add(const std::string& path, unsigned long long size) {
  Item& next = item(added_);
  next.state = Item::left_alone;
  try {
    next.file.path = path;
    if (!is_off_ && !path.empty() && size <= largest_file) next.state = Item::waiting;
  } catch (const std::exception&) {
    is_off_ = true;
  }
  const bool is_waiting = next.state == Item::waiting;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++added_;
  }
  if (is_waiting) added_files_.notify_one();
}

void Ready_Files::remove_oldest() {
  std::unique_lock<std::mutex> lock(mutex_);
  Item& oldest = item(removed_);
  while (oldest.state == Item::waiting || oldest.state == Item::in_work) {
    if (begun_ != added_) {
      prepare_next(lock, *compressors_[0]);
    } else {
      prepared_files_.wait(lock);
    }
  }
  ++removed_;
  begun_ = std::max(begun_, removed_);
  current_ = &oldest;
}

const Ready_Files::File* Ready_Files::find(const std::string& path) const {
  const bool is_ready = current_ != nullptr && current_->state == Item::ready;
  return is_ready && current_->file.path == path ? &current_->file : nullptr;
}

const Buffer* Ready_Files::find_compressed(const Buffer& content) const {
  if (current_ == nullptr || current_->state != Item::ready) return nullptr;
  const File& file = current_->file;
  const bool is_same = content.size() == file.content.size() &&
                       std::memcmp(content.data(), file.content.data(), content.size()) == 0;
  return is_same ? &file.compressed : nullptr;
}

void Ready_Files::work() {
  std::unique_lock<std::mutex> lock(mutex_);
  Compressor& compressor = *compressors_[++helpers_];
  for (;;) {
    added_files_.wait(lock, [this] { return is_stopping_ || begun_ != added_; });
    if (is_stopping_) return;
    prepare_next(lock, compressor);
  }
}

void Ready_Files::prepare_next(std::unique_lock<std::mutex>& lock, Compressor& compressor) {
  Item& next = item(begun_++);
  if (next.state != Item::waiting) return;
  next.state = Item::in_work;
  lock.unlock();
  bool is_ready = false;
  try {
    is_ready = prepare(compressor, next.file);
  } catch (const std::exception&) {
    // The writer tells what it can't do itself.
  }
  lock.lock();
  next.state = is_ready ? Item::ready : Item::left_alone;
  prepared_files_.notify_one();
}

}  // namespace MTF
