#include "mtf/catalog/source_processor.h"

#include <ace/Log_Msg.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "mtf/catalog/cat_summary.h"
#include "mtf/common/stream.h"
#include "services/text.h"

namespace MTF {
namespace {

constexpr std::size_t buffer_size = 0x18000;
constexpr std::size_t longest_entry = 0xFFFF;
static_assert(buffer_size > longest_entry, "an entry is looked at in one piece");

// The longest metadata text that is believed; a real one is far shorter.
constexpr unsigned long long longest_metadata = 0x1000000;
constexpr unsigned int catalog_mark = 1;

bool is_entry(unsigned int type) {
  switch (type) {
    case block_volb:
    case block_dirb:
    case block_file:
    case block_slnk:
    case block_hlnk:
    case block_devb:
    case block_pdat:
      return true;
    default:
      return false;
  }
}

}  // namespace

bool Source_Processor::open(const std::string& path) {
  if (name_shown_.empty()) name_shown_ = path;
  buffer_.reset(new (std::nothrow) char[buffer_size]);
  if (buffer_ == nullptr) {
    errno = ENOMEM;
    return fail("out of memory");
  }
  if (!file_.open_local_read(path)) return fail(std::strerror(errno));
  const long long size = file_.seek(0, SEEK_END);
  if (size < 0 || file_.seek(0, SEEK_SET) != 0) return fail(std::strerror(errno));
  size_ = static_cast<unsigned long long>(size);
  return read_summary() && read_metadata();
}

bool Source_Processor::fail(const char* what) {
  if (!failed_) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Earlier catalog can't be used, %C:%Q: %C\n"),
               name_shown_.c_str(), position_, what));
  }
  failed_ = true;
  return false;
}

// Brings the next `size` bytes into the buffer, in one piece.
bool Source_Processor::fetch(std::size_t size) {
  if (size > size_ - position_) return fail("the catalog is cut off");
  if (end_ - at_ >= size) return true;
  std::memmove(buffer_.get(), here(), end_ - at_);
  end_ -= at_;
  at_ = 0;
  while (end_ < size) {
    const long long got = file_.read(buffer_.get() + end_, buffer_size - end_);
    if (got < 0) return fail(std::strerror(errno));
    if (got == 0) return fail("the catalog is cut off");
    end_ += static_cast<std::size_t>(got);
  }
  return true;
}

void Source_Processor::pass(std::size_t size) {
  at_ += size;
  position_ += size;
}

bool Source_Processor::read_summary() {
  if (!fetch(Cat_Summary::file_size)) return false;
  Cat_Summary summary;
  summary.assign(here());
  if (summary.checksum() != summary.calc_checksum()) return fail("the summary is damaged");
  if (summary.catalog_mark() != catalog_mark) return fail("this is no catalog");
  pass(Cat_Summary::file_size);
  return true;
}

bool Source_Processor::read_metadata() {
  if (!fetch(Stream_Hdr::fixed_size)) return false;
  const Stream_Hdr header(here(), Stream_Hdr::fixed_size);
  if (header.id() != stream_meta || header.checksum() != header.calc_checksum()) {
    return fail("the metadata stream is damaged");
  }
  const unsigned long long length = header.length();
  if (length > size_ - position_ - Stream_Hdr::fixed_size) {
    return fail("the metadata stream has a wrong length");
  }
  if (length > longest_metadata) return fail("the metadata is too long");
  pass(Stream_Hdr::fixed_size);
  return read_metadata_text(length);
}

bool Source_Processor::read_metadata_text(unsigned long long length) {
  metadata_.reserve(length);
  while (metadata_.size() < length) {
    const std::size_t left = length - metadata_.size();
    const std::size_t part = left < buffer_size ? left : buffer_size;
    if (!fetch(part)) return false;
    metadata_.append(here(), part);
    pass(part);
  }
  return true;
}

bool Source_Processor::next() {
  if (failed_ || ended_) return false;
  pass(entry_size_);
  entry_size_ = 0;
  if (!check_header()) return false;
  if (entry_.hdr().type() == block_fend) return check_end();
  if (!check_entry()) return false;
  ++entries_;
  return true;
}

bool Source_Processor::check_header() {
  if (size_ - position_ < Cat_Hdr::fixed_size) return fail("the catalog has no FEND record");
  if (!fetch(Cat_Hdr::fixed_size)) return false;
  entry_.set_buffer(here(), Cat_Hdr::fixed_size, false);
  const Cat_Hdr& header = entry_.hdr();
  if (header.checksum() != header.calc_checksum()) return fail("a record is damaged");
  if (header.type() == block_fend || is_entry(header.type())) return true;
  return fail("a record is of an unknown type");
}

// Takes the whole entry into view. Its name must lie behind its fixed part and inside it.
bool Source_Processor::check_entry() {
  const bool volume = entry_.hdr().type() == block_volb;
  const unsigned int fixed = volume ? MTF_CAT_VOLB_BLK::fixed_size : MTF_CAT_DIRB_BLK::fixed_size;
  const unsigned int length = entry_.hdr().length();
  if (length < fixed || length > size_ - position_) return fail("a record has a wrong length");
  if (!fetch(length)) return false;
  entry_.set_buffer(here(), length, false);
  const Tape_Address_Getter address(name_address(entry_));
  const unsigned int offset = address.offset();
  const unsigned int size = address.size();
  if (size == 0 || offset < fixed || offset > length || size > length - offset) {
    return fail("a record has a name outside itself");
  }
  if (entry_.hdr().string_type() != string_bytes) return fail("a name is of an unknown type");
  name_ = std::string_view(here() + offset, size);
  entry_size_ = length;
  return true;
}

bool Source_Processor::check_end() {
  if (entry_.hdr().length() != Cat_Hdr::fixed_size)
    return fail("the FEND record has a wrong length");
  if (size_ - position_ != Cat_Hdr::fixed_size) return fail("the FEND record isn't the last");
  ended_ = true;
  if (debug_) {
    ACE_DEBUG((LM_DEBUG, ACE_TEXT("Earlier catalog read, path=%C, entries=%Q\n"),
               name_shown_.c_str(), entries_));
  }
  return false;
}

}  // namespace MTF
