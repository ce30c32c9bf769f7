#include "agent/soft_filemark.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "mtf/common/dblk.h"
#include "services/bytes.h"
#include "services/text.h"

namespace agent {
namespace {

// Offsets behind the common header.
constexpr std::size_t entries_in_array_at = 52;
constexpr std::size_t entries_used_at = 56;
constexpr unsigned char own_os_id = 14;

}  // namespace

void Soft_Filemarks::reset() {
  pbas_.clear();
  count_ = 0;
}

void Soft_Filemarks::make(unsigned long long pba, MTF::Buffer& block) {
  char* bytes = block.data();
  std::memset(bytes, 0, block.size());
  const std::size_t capacity = (block.size() - fixed_size) / sizeof(std::uint32_t);
  const std::size_t used = std::min(capacity, pbas_.size());
  MTF::store_le(bytes + entries_in_array_at, static_cast<std::uint32_t>(capacity));
  MTF::store_le(bytes + entries_used_at, static_cast<std::uint32_t>(used));
  for (std::size_t i = 0; i < used; ++i) {
    MTF::store_le(bytes + fixed_size + i * sizeof(std::uint32_t), pbas_[pbas_.size() - 1 - i]);
  }
  MTF::DBLK_Hdr header(block);
  header.type(MTF::block_sfmb);
  header.offset_to_first_event(static_cast<unsigned short>(block.size()));
  header.os_id(own_os_id);
  header.format_logical_address(pba);
  header.control_block_id(++count_);
  header.string_type(MTF::string_bytes);
  header.checksum(header.calc_checksum());
  if (pba <= std::numeric_limits<std::uint32_t>::max()) {
    pbas_.push_back(static_cast<std::uint32_t>(pba));
  }
}

}  // namespace agent
