#include "mtf/reader/filemark_check.h"

#include <algorithm>

namespace MTF {
namespace {

constexpr unsigned int element_size = 4;

}  // namespace

void Filemark_Check::forget() {
  sure_ = false;
  earlier_.clear();
}

void Filemark_Check::take(const Media_Block& block, const Media_Geometry& geometry) {
  const Block_View& view = block.view;
  const auto fault = [&](unsigned int at, const char* text) {
    on_fault_(block.position + at, text);
  };
  if (view.bytes.size() != geometry.physical) fault(8, "SFMB block doesn't fill a physical block");
  const unsigned int number = view.header.control_block_id;
  if (sure_ && number != count_ + 1) fault(36, "SFMB block has a wrong number");
  const auto room = static_cast<unsigned int>((view.bytes.size() - sfmb_at::array) / element_size);
  const auto entries = view.get<unsigned int>(sfmb_at::entries);
  const auto used = view.get<unsigned int>(sfmb_at::entries_used);
  if (entries != room) fault(sfmb_at::entries, "SFMB block has a wrong number of entries");
  const unsigned int expected = number == 0 ? 0 : std::min(number - 1, room);
  if (used != expected) fault(sfmb_at::entries_used, "SFMB block counts its entries wrongly");
  check_array(block, room);
  count_ = number;
  earlier_.push_front(static_cast<unsigned int>(block.position / geometry.physical));
  if (earlier_.size() > room) earlier_.resize(room);
}

void Filemark_Check::check_array(const Media_Block& block, unsigned int entries) {
  const unsigned int used = std::min(block.view.get<unsigned int>(sfmb_at::entries_used), entries);
  for (unsigned int i = 0; i < entries; ++i) {
    const unsigned int at = sfmb_at::array + i * element_size;
    const auto pba = block.view.get<unsigned int>(at);
    const bool known = i < earlier_.size();
    const bool right = i >= used ? pba == 0 : known ? pba == earlier_[i] : !sure_;
    if (right) continue;
    on_fault_(block.position + at, "SFMB block has a wrong entry");
    return;
  }
}

}  // namespace MTF
