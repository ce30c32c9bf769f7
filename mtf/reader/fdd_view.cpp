#include "mtf/reader/fdd_view.h"

#include "mtf/reader/block_view.h"

namespace MTF {
namespace {

constexpr unsigned int date_size = 5;

}  // namespace

bool read_fdd_entry(std::string_view bytes, FDD_View& entry) {
  if (bytes.size() < fdd_header_size) return false;
  const char* data = bytes.data();
  entry.length = load_le<unsigned short>(data + fdd_at::length);
  entry.type = load_le<unsigned int>(data + fdd_at::type);
  entry.seq = load_le<unsigned short>(data + fdd_at::media_sequence_number);
  entry.address = load_le<unsigned long long>(data + fdd_at::format_logical_address);
  entry.size = load_le<unsigned long long>(data + fdd_at::displayable_size);
  entry.string_type = load_le<unsigned char>(data + fdd_at::string_type);
  const Block_Layout* layout = block_layout(entry.type);
  if (layout == nullptr || layout->name == 0) return false;
  const bool volume = entry.type == block_volb;
  const unsigned int fixed = volume ? fdd_volume_size : fdd_named_size;
  if (entry.length < fixed || entry.length > bytes.size()) return false;
  entry.date =
      volume ? std::string_view() : bytes.substr(fdd_named_at::last_modification_date, date_size);
  const char* address = data + (volume ? +fdd_volume_at::device_name : +fdd_named_at::name);
  const unsigned int size = load_le<unsigned short>(address);
  const unsigned int start = load_le<unsigned short>(address + 2);
  if (size == 0 || start < fixed || start + size > entry.length) return false;
  entry.name = bytes.substr(start, size);
  return true;
}

}  // namespace MTF
