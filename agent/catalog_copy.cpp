#include "agent/catalog_copy.h"

#include <algorithm>
#include <cerrno>

#include "agent/text.h"

namespace agent {
namespace {

// Enough for a look at what the job is; a whole catalog may have gigabytes. Of a small one the head
// alone isn't worth a call.
constexpr unsigned long long head_size = 0x10000;
constexpr unsigned long long small_catalog = 0x400000;

}  // namespace

long long Catalog_Copy::read_at(unsigned long long offset, char* data, unsigned long long size) {
  if (offset >= size_) return 0;
  size = std::min(size, size_ - offset);
  const std::lock_guard<std::mutex> guard(mutex_);
  std::string error;
  int tries = 0;
  const bool from_head = !file_.is_open() && size_ > small_catalog && offset + size <= head_size;
  while (!(from_head ? fetch_head(error) : fetch_all(error))) {
    if (rclone_.wait_for_retry(tries)) continue;
    note_trouble(name_ + ": " + error);
    errno = EIO;
    return -1;
  }
  if (!from_head) return file_.read_at(offset, data, static_cast<std::size_t>(size));
  head_.copy(data, static_cast<std::size_t>(size), static_cast<std::size_t>(offset));
  return static_cast<long long>(size);
}

bool Catalog_Copy::fetch_head(std::string& error) {
  if (head_.size() == head_size) return true;
  head_.clear();
  const Call_End end = rclone_.get(name_, 0, head_size, head_, error);
  if (end == Call_End::done && head_.size() == head_size) return true;
  if (end == Call_End::done) error = "rclone: the object ends too early";
  return false;
}

bool Catalog_Copy::fetch_all(std::string& error) {
  if (file_.is_open()) return true;
  platform::Piece_File file;
  if (!file.open_unnamed(tmp_)) {
    error = error_text("a working file in '" + escape_controls(tmp_) + '\'', errno);
    return false;
  }
  const auto take = [&](const char* data, std::size_t size) { return file.write_all(data, size); };
  const Call_End end = rclone_.get_all(name_, take, error);
  if (end == Call_End::done && file.size() == static_cast<long long>(size_)) {
    file_ = std::move(file);
    return true;
  }
  if (end == Call_End::done) error = "rclone: the object ends too early";
  return false;
}

}  // namespace agent
