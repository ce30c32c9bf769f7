#include "agent/directory_storage.h"

#include <cerrno>
#include <new>
#include <utility>

#include "agent/text.h"

namespace agent {

Directory_Channel::Directory_Channel(Piece_Namer& pieces, unsigned int physical_block_size,
                                     const MTF::Event_Handler* events)
    : directory_(pieces.directory()),
      pieces_(pieces),
      events_(events),
      writer_(physical_block_size) {}

Directory_Channel::~Directory_Channel() {
  disconnect();
}

void Directory_Channel::disconnect() {
  if (mode_ == mode_write) drop();
  if (mode_ == mode_read) reader_.finish();
  mode_ = 0;
}

bool Directory_Channel::open(const char* name, int mode, int) {
  error_.clear();
  const std::string wanted = name ? name : "";
  const bool known_mode = mode == mode_write || mode == mode_read;
  if (mode_ != 0 || !known_mode || !platform::Storage_Directory::is_plain(wanted)) {
    errno = mode_ != 0 ? EBUSY : EINVAL;
    return fail(wanted);
  }
  name_ = wanted;
  if (mode == mode_write ? !open_write() : !open_read()) return false;
  mode_ = mode;
  return true;
}

bool Directory_Channel::open_write() {
  if (directory_.exists(name_)) {
    errno = EEXIST;
    return fail(name_);
  }
  const std::string part = name_ + part_ending;
  platform::Piece_File file;
  if (!directory_.create(part, file)) return fail(part);
  if (writer_.start(std::move(file), part)) return true;
  error_ = writer_.err_msg();
  drop();
  return false;
}

bool Directory_Channel::open_read() {
  platform::Piece_File file;
  if (!directory_.open_read(name_, file)) return fail(name_);
  reader_.start(std::move(file));
  return true;
}

bool Directory_Channel::close() {
  const int mode = std::exchange(mode_, 0);
  if (mode == mode_read) return reader_.finish() || fail(name_);
  if (mode != mode_write) return true;
  if (events_ && events_->is_canceling() && !writer_.has_failed()) {
    drop();
    return true;
  }
  if (writer_.finish()) {
    pieces_.add(name_);
    return true;
  }
  error_ = writer_.err_msg();
  directory_.remove(name_ + part_ending);
  return false;
}

void Directory_Channel::drop() {
  writer_.discard();
  directory_.remove(name_ + part_ending);
}

bool Directory_Channel::remove(const char* name) {
  error_.clear();
  const std::string piece = name ? name : "";
  if (!platform::Storage_Directory::is_plain(piece)) {
    errno = EINVAL;
    return fail(piece);
  }
  const bool had_part = directory_.remove(piece + part_ending);
  if (!directory_.remove(piece) && !(had_part && errno == ENOENT)) return fail(piece);
  return directory_.sync() || fail(piece);
}

bool Directory_Channel::fail(const std::string& object) {
  error_ = error_text(object, errno);
  return false;
}

MTF::Ref_Ptr<MTF::Channel> Directory_Channel_Factory::create() {
  return MTF::share<MTF::Channel>(new (std::nothrow)
                                      Directory_Channel(pieces_, bytes_per_blk_, events_));
}

}  // namespace agent
