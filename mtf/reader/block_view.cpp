#include "mtf/reader/block_view.h"

#include "services/checksum.h"

namespace MTF {
namespace {

constexpr Block_Layout file_like(unsigned int type) {
  return {type, 88, false, true, file_at::file_name, {file_at::file_name, 0, 0, 0}};
}

constexpr Block_Layout layouts[] = {
    {block_tape, 94, true, false, 0, {68, 72, 76, 80}},
    {block_sset, 98, true, false, 0, {64, 68, 72, 76}},
    {block_volb, 73, false, true, volb_at::device_name, {volb_at::device_name, 60, 64, 0}},
    {block_dirb, 84, false, true, dirb_at::directory_name, {dirb_at::directory_name, 0, 0, 0}},
    file_like(block_file),
    file_like(block_pdat),
    file_like(block_hlnk),
    file_like(block_slnk),
    file_like(block_devb),
    {block_cfil, 74, false, true, 0, {}},
    {block_eset, 85, true, false, 0, {}},
    {block_eotm, 60, true, false, 0, {}},
    {block_sfmb, 60, true, false, 0, {}},
};

}  // namespace

Block_Header read_block_header(const char* bytes) {
  Block_Header header;
  header.type = load_le<unsigned int>(bytes);
  header.attributes = load_le<unsigned int>(bytes + 4);
  header.offset_to_first_event = load_le<unsigned short>(bytes + 8);
  header.os_id = load_le<unsigned char>(bytes + 10);
  header.displayable_size = load_le<unsigned long long>(bytes + 12);
  header.format_logical_address = load_le<unsigned long long>(bytes + 20);
  header.control_block_id = load_le<unsigned int>(bytes + 36);
  header.string_type = load_le<unsigned char>(bytes + 48);
  header.intact = load_le<unsigned short>(bytes + header_checksum_offset) ==
                  header_checksum(bytes, header_checksum_offset);
  return header;
}

const Block_Layout* block_layout(unsigned int type) {
  for (const Block_Layout& layout : layouts) {
    if (layout.type == type) return &layout;
  }
  return nullptr;
}

bool Block_View::string(unsigned int offset, std::string_view& out) const {
  const auto size = get<unsigned short>(offset);
  const auto start = get<unsigned short>(offset + 2);
  out = {};
  if (size == 0) return start == 0;
  if (start < layout->fixed_size || start > bytes.size() || size > bytes.size() - start) {
    return false;
  }
  out = bytes.substr(start, size);
  return true;
}

std::string_view block_name(const Block_View& block) {
  std::string_view name;
  if (block.layout->name != 0) block.string(block.layout->name, name);
  return name;
}

long long block_mtime(const Block_View& block) {
  if (block.layout->name == 0 || block.header.type == block_volb) return 0;
  // A directory's and a file's date stand at one place.
  static_assert(+dirb_at::last_modification_date == +file_at::last_modification_date);
  return mtf_date_time_to_time(
      reinterpret_cast<const unsigned char*>(block.bytes.data() + file_at::last_modification_date));
}

bool same_date(std::string_view copy, std::string_view original) {
  if (copy == original) return true;
  unsigned char start[date_time_size];
  time_to_mtf_date_time(0, start);
  const std::string_view start_text(reinterpret_cast<const char*>(start), date_time_size);
  return copy == start_text && original == std::string_view("\0\0\0\0", date_time_size);
}

std::string block_word(unsigned int type) {
  return fdd_entry_type_string(type);
}

}  // namespace MTF
