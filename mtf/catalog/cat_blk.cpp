#include "mtf/catalog/cat_blk.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "services/text.h"

namespace MTF {

Cat_Blk::Cat_Blk() : data_(nullptr), capacity_(0), hdr_(nullptr, 0) {}

Cat_Blk::Cat_Blk(char* data, unsigned int size, bool own)
    : owned_(own ? data : nullptr), data_(data), capacity_(size), hdr_(data, size) {}

Cat_Blk::Cat_Blk(Cat_Blk&& other)
    : owned_(std::move(other.owned_)),
      data_(other.data_),
      capacity_(other.capacity_),
      hdr_(other.hdr_) {
  other.set_buffer(nullptr, 0, false);
}

Cat_Blk::~Cat_Blk() = default;

void* Cat_Blk::operator new(std::size_t size) {
  return ::operator new(size);
}

void* Cat_Blk::operator new(std::size_t size, const std::nothrow_t& tag) noexcept {
  return ::operator new(size, tag);
}

void* Cat_Blk::operator new(std::size_t size, Room room) noexcept {
  void* const memory = ::operator new(size + room.size, std::nothrow);
  if (memory == nullptr) errno = ENOMEM;
  return memory;
}

// All get their memory from the same place, whatever stands behind the object.
void Cat_Blk::operator delete(void* memory) noexcept {
  ::operator delete(memory);
}

void Cat_Blk::operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
  ::operator delete(memory);
}

void Cat_Blk::operator delete(void* memory, Room /*room*/) noexcept {
  ::operator delete(memory);
}

void Cat_Blk::set_buffer(char* data, unsigned int size, bool own) {
  owned_.reset(own ? data : nullptr);
  data_ = data;
  capacity_ = size;
  hdr_ = Cat_Hdr(data, size);
}

void Cat_Blk::set_buffer(const Cat_Blk& other) {
  set_buffer(other.data_, other.capacity_, false);
}

bool Cat_Blk::alloc_buffer(unsigned int size) {
  char* data = new (std::nothrow) char[size]();
  if (data == nullptr) {
    errno = ENOMEM;
    return false;
  }
  set_buffer(data, size, true);
  return true;
}

void Cat_Blk::set_end() {
  stamp(Cat_Hdr::fixed_size, block_fend);
  hdr_.checksum(hdr_.calc_checksum());
}

void Cat_Blk::stamp(unsigned int fixed_size, unsigned int type) {
  std::memset(data_, 0, fixed_size);
  hdr_.length(static_cast<unsigned short>(fixed_size));
  hdr_.type(type);
}

bool Cat_Blk::store_name(unsigned int address_offset, std::string_view name) {
  const unsigned int place = hdr_.length();
  if (place + name.size() > capacity_ || place + name.size() > 65535) return false;
  std::memcpy(data_ + place, name.data(), name.size());
  Tape_Address_Setter address(reinterpret_cast<MTF_TAPE_ADDRESS*>(data_ + address_offset));
  address.offset(static_cast<unsigned short>(place));
  address.size(static_cast<unsigned short>(name.size()));
  hdr_.length(static_cast<unsigned short>(place + name.size()));
  return true;
}

const MTF_TAPE_ADDRESS* name_address(const Cat_Blk& block) {
  if (block.capacity() < Cat_Hdr::fixed_size || block.hdr().type() == block_fend) return nullptr;
  const bool volume = block.hdr().type() == block_volb;
  const unsigned int fixed = volume ? MTF_CAT_VOLB_BLK::fixed_size : MTF_CAT_DIRB_BLK::fixed_size;
  if (block.hdr().length() < fixed || block.capacity() < fixed) return nullptr;
  const unsigned int offset = volume ? MTF_CAT_VOLB_BLK::name : MTF_CAT_DIRB_BLK::name;
  return reinterpret_cast<const MTF_TAPE_ADDRESS*>(block.data() + offset);
}

bool block_name(const Cat_Blk& block, std::string& out) {
  const MTF_TAPE_ADDRESS* address = name_address(block);
  if (address == nullptr) return false;
  const Tape_Address_Getter name(address);
  const unsigned int end = name.offset() + name.size();
  if (name.size() == 0 || end > block.hdr().length() || end > block.capacity()) return false;
  out.assign(block.data() + name.offset(), name.size());
  return true;
}

}  // namespace MTF
