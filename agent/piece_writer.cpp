#include "agent/piece_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "agent/text.h"

namespace agent {
namespace {

constexpr std::align_val_t page{4096};

}  // namespace

void Piece_Writer::Aligned_Delete::operator()(char* memory) const {
  ::operator delete(memory, page);
}

Piece_Writer::Piece_Writer(unsigned int physical_block_size)
    : physical_block_size_(physical_block_size) {}

bool Piece_Writer::start(std::unique_ptr<IPiece_Sink> sink, const std::string& name) {
  sink_ = std::move(sink);
  name_ = name;
  error_.clear();
  failed_ = false;
  size_ = 0;
  used_ = 0;
  filemarks_.reset();
  if (!block_) {
    block_.reset(static_cast<char*>(::operator new(block_size, page, std::nothrow)));
  }
  if (!block_) fail(error_text(name_, ENOMEM));
  return !failed_;
}

bool Piece_Writer::finish() {
  if (!failed_ && drain() && !sink_->finish()) fail(sink_->error());
  sink_.reset();
  return !failed_;
}

void Piece_Writer::fail(const std::string& error) {
  if (!failed_) error_ = error;
  failed_ = true;
}

unsigned long long Piece_Writer::write(const char* data, unsigned long long size) {
  if (failed_) return 0;
  if (size >= direct_size) {
    if (!drain() || !put(data, size)) return 0;
    size_ += size;
    return size;
  }
  unsigned long long taken = 0;
  while (taken < size) {
    const std::size_t part = std::min<std::size_t>(size - taken, block_size - used_);
    std::memcpy(block_.get() + used_, data + taken, part);
    used_ += part;
    if (used_ == block_size && !drain()) return taken;
    taken += part;
    size_ += part;
  }
  return taken;
}

unsigned long long Piece_Writer::write_filemark(unsigned long long pba) {
  const unsigned int size = physical_block_size_;
  if (size < Soft_Filemarks::fixed_size || size > std::numeric_limits<std::uint16_t>::max() ||
      size % sizeof(std::uint32_t) != 0) {
    fail(error_text(name_, EINVAL));
  } else if (!filemark_.expand(size)) {
    fail(error_text(name_, ENOMEM));
  }
  if (failed_) return failed;
  filemark_.size(size);
  filemarks_.make(pba, filemark_);
  return write(filemark_.data(), size) == size ? size : failed;
}

bool Piece_Writer::put(const char* data, std::size_t size) {
  if (!sink_->write(data, size)) fail(sink_->error());
  return !failed_;
}

bool Piece_Writer::drain() {
  return put(block_.get(), std::exchange(used_, 0));
}

}  // namespace agent
