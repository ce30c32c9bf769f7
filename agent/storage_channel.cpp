#include "agent/storage_channel.h"

#include <cerrno>
#include <new>
#include <utility>

#include "agent/text.h"
#include "services/no_throw.h"

namespace agent {
namespace {

constexpr const char* who = "Storage_Channel";

}  // namespace

void Piece_Reader::start(std::unique_ptr<MTF::IRandom_Reader> piece) {
  piece_ = std::move(piece);
  position_ = 0;
}

long long Piece_Reader::read(char* data, unsigned long long size) {
  const long long count =
      MTF::no_throw(who, -1LL, [&] { return piece_->read_at(position_, data, size); });
  if (count > 0) position_ += static_cast<unsigned long long>(count);
  return count;
}

Storage_Channel::Storage_Channel(Piece_Namer& pieces, unsigned int physical_block_size,
                                 const MTF::Event_Handler* events)
    : storage_(pieces.storage()), pieces_(pieces), events_(events), writer_(physical_block_size) {}

Storage_Channel::~Storage_Channel() {
  disconnect();
}

void Storage_Channel::disconnect() {
  if (mode_ == mode_write) writer_.discard();
  if (mode_ == mode_read) reader_.finish();
  mode_ = 0;
}

bool Storage_Channel::open(const char* name, int mode, int) {
  error_.clear();
  const bool known_mode = mode == mode_write || mode == mode_read;
  const std::string wanted = name ? name : "";
  if (mode_ != 0 || !known_mode) {
    error_ = error_text(wanted, mode_ != 0 ? EBUSY : EINVAL);
    return false;
  }
  name_ = wanted;
  if (mode == mode_write ? !open_write() : !open_read()) return false;
  mode_ = mode;
  return true;
}

bool Storage_Channel::open_write() {
  std::unique_ptr<IPiece_Sink> sink = storage_.create(name_, error_);
  if (!sink) return false;
  if (writer_.start(std::move(sink), name_)) return true;
  error_ = writer_.err_msg();
  writer_.discard();
  return false;
}

bool Storage_Channel::open_read() {
  std::unique_ptr<MTF::IRandom_Reader> piece = storage_.open(name_, error_);
  if (!piece) return false;
  reader_.start(std::move(piece));
  return true;
}

bool Storage_Channel::close() {
  const int mode = std::exchange(mode_, 0);
  if (mode == mode_read) reader_.finish();
  if (mode != mode_write) return true;
  if (events_ && events_->is_canceling() && !writer_.has_failed()) {
    writer_.discard();
    return true;
  }
  if (writer_.finish()) {
    pieces_.add(name_);
    return true;
  }
  error_ = writer_.err_msg();
  return false;
}

bool Storage_Channel::remove(const char* name) {
  error_.clear();
  return storage_.remove({name ? name : ""}, error_);
}

MTF::Ref_Ptr<MTF::Channel> Storage_Channel_Factory::create() {
  return MTF::share<MTF::Channel>(new (std::nothrow)
                                      Storage_Channel(pieces_, bytes_per_blk_, events_));
}

}  // namespace agent
