#include "mtf/common/dblk.h"

#include <cstring>
#include <new>

#include "mtf/common/round_up.h"
#include "services/checksum.h"

namespace MTF {
namespace {

constexpr unsigned int block_checksum_offset = 50;
constexpr unsigned char this_os_id = 14;
constexpr unsigned short block_alignment = 4;
constexpr unsigned int largest_block = 65535 & ~(block_alignment - 1U);

}  // namespace

unsigned short DBLK_Hdr::calc_checksum() const {
  return header_checksum(bytes(), block_checksum_offset);
}

DBLK::DBLK(Buffer& buffer, bool init) : buffer_(buffer), hdr_(buffer) {
  if (!init) return;
  if (!buffer_.expand(image_size)) throw std::bad_alloc();
  DBLK::reset();
}

void DBLK::reset() {
  std::memset(buffer_.data(), 0, image_size);
  hdr_.os_id(this_os_id);
  hdr_.string_type(string_bytes);
}

void DBLK::start(unsigned int type, unsigned short fixed_size) {
  hdr_.type(type);
  hdr_.offset_to_first_event(fixed_size);
}

unsigned long long DBLK::write(IWriter& writer) {
  const auto size = round_up(hdr_.offset_to_first_event(), block_alignment);
  hdr_.offset_to_first_event(size);
  hdr_.checksum(hdr_.calc_checksum());
  return writer.write(buffer_.data(), size) == size ? size : IWriter::failed;
}

bool DBLK::has_room(std::size_t size) const {
  return hdr_.offset_to_first_event() + size <= image_size;
}

void DBLK::store_string(unsigned int address_offset, const std::string& text) {
  const unsigned short place = hdr_.offset_to_first_event();
  const auto size = static_cast<unsigned short>(text.size());
  std::memcpy(bytes() + place, text.data(), size);
  Tape_Address_Setter address(reinterpret_cast<MTF_TAPE_ADDRESS*>(bytes() + address_offset));
  address.size(size);
  address.offset(place);
  hdr_.offset_to_first_event(static_cast<unsigned short>(place + size));
}

bool DBLK::store_long_string(unsigned int address_offset, const std::string& text) {
  const std::size_t end = hdr_.offset_to_first_event() + text.size();
  if (end > largest_block) return false;
  const auto padded = round_up(static_cast<unsigned int>(end), unsigned{block_alignment});
  if (!buffer_.expand(padded)) return false;
  store_string(address_offset, text);
  std::memset(bytes() + end, 0, padded - end);
  return true;
}

const MTF_TAPE_ADDRESS* DBLK::address_at(unsigned int offset) const {
  return reinterpret_cast<const MTF_TAPE_ADDRESS*>(bytes() + offset);
}

std::string_view DBLK::view_at(unsigned int address_offset) const {
  const Tape_Address_Getter address(address_at(address_offset));
  const unsigned int end = 0U + address.offset() + address.size();
  if (end > buffer_.capacity()) return std::string_view();
  return std::string_view(bytes() + address.offset(), address.size());
}

std::string DBLK::string_at(unsigned int address_offset) const {
  return std::string(view_at(address_offset));
}

unsigned short DBLK::string_size_at(unsigned int address_offset) const {
  return Tape_Address_Getter(address_at(address_offset)).size();
}

}  // namespace MTF
