#include "mtf/writer/ready_files.h"

#include <algorithm>
#include <cstring>
#include <exception>

namespace MTF {
namespace {

constexpr int most_compressing_threads = 8;

bool read_whole(Ready_Files::File& out) {
  platform::File file;
  if (!file.open_read(out.path)) return false;
  const long long size = file.stat().st_size;
  if (size <= 0 || size > Ready_Files::largest_file) return false;
  const auto length = static_cast<unsigned int>(size);
  if (!out.content.expand(length)) return false;
  if (file.read(out.content.data(), length) != size) return false;
  out.content.size(length);
  out.facts = file.facts();
  return true;
}

// Reads and compresses the file at `out.path`. False where the writer has to look at it, and tell
// what it can't do itself: it can't be opened, is empty, large, or was changed meanwhile.
bool prepare(Compressor& compressor, Ready_Files::File& out) {
  try {
    return read_whole(out) && compressor.compress(out.content, out.compressed) >= 0;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace

Ready_Files::Ready_Files(unsigned short method, int level, int threads)
    : method_(method),
      level_(level),
      thread_count_(std::min(threads, most_compressing_threads)),
      ring_(items_.size(), [this](std::size_t place, Compressor& compressor) {
        Item& item = items_[place];
        item.is_ready = prepare(compressor, item.file);
      }) {}

// Blocks are taken many at a time, so that a thread is woken once for many.
bool Ready_Files::is_wanted() {
  if (is_off_ || ring_.size() > most_files / 2) return false;
  if (!is_started_) is_off_ = !ring_.start(method_, level_, thread_count_);
  is_started_ = true;
  return !is_off_;
}

void Ready_Files::add(const std::string& path, unsigned long long size) {
  Item& next = items_[ring_.next()];
  next.is_ready = false;
  try {
    next.file.path = path;
  } catch (const std::exception&) {
    is_off_ = true;
  }
  ring_.add(!is_off_ && !path.empty() && size <= largest_file);
}

void Ready_Files::remove_oldest() {
  ring_.finish_oldest();
  current_ = &items_[ring_.oldest()];
  ring_.remove_oldest();
}

const Ready_Files::File* Ready_Files::find(const std::string& path) const {
  const bool is_ready = current_ != nullptr && current_->is_ready;
  return is_ready && current_->file.path == path ? &current_->file : nullptr;
}

const Buffer* Ready_Files::find_compressed(const Buffer& content) const {
  if (current_ == nullptr || !current_->is_ready) return nullptr;
  const File& file = current_->file;
  const bool is_same = content.size() == file.content.size() &&
                       std::memcmp(content.data(), file.content.data(), content.size()) == 0;
  return is_same ? &file.compressed : nullptr;
}

}  // namespace MTF
