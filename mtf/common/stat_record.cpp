#include "mtf/common/stat_record.h"

#include <cstring>

namespace MTF {
namespace {

constexpr unsigned int farthest = 65535;

}  // namespace

Stat_Extent_Setter::Stat_Extent_Setter(Buffer& buffer)
    : buffer_(buffer), ready_(buffer.expand(fixed_size)) {
  if (ready_) std::memset(bytes(), 0, fixed_size);
}

bool Stat_Extent_Setter::append(unsigned int address_offset, const std::string& name) {
  if (name.size() > farthest - end_) return false;
  const auto size = static_cast<unsigned short>(name.size());
  if (!buffer_.expand(end_ + size)) return false;
  std::memcpy(bytes() + end_, name.data(), size);
  Tape_Address_Setter address(reinterpret_cast<MTF_TAPE_ADDRESS*>(bytes() + address_offset));
  address.size(size);
  address.offset(static_cast<unsigned short>(end_));
  end_ += size;
  return true;
}

}  // namespace MTF
