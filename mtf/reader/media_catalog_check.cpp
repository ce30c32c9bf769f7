#include "mtf/reader/media_catalog_check.h"

#include <cstring>

#include "mtf/reader/block_loader.h"
#include "mtf/reader/fdd_view.h"

namespace MTF {
namespace {

// What an entry takes over from its block.
struct Copied {
  unsigned int in_entry;
  unsigned int in_block;
  unsigned int width;
};

constexpr Copied header_fields[] = {{8, 4, 4}, {20, 12, 8}, {32, 10, 2}, {34, 48, 1}};
constexpr Copied volume_fields[] = {{36, 52, 4}};
constexpr Copied file_fields[] = {{56, 52, 4}};
constexpr Copied set_fields[] = {{4, 4, 4},   {8, 52, 4},  {12, 80, 8}, {30, 62, 2}, {32, 20, 8},
                                 {62, 56, 2}, {85, 95, 1}, {86, 10, 2}, {88, 48, 1}, {89, 96, 2}};
constexpr Copied volume_dates[] = {{56, 68, 5}};
constexpr Copied file_dates[] = {{36, 56, 5}, {41, 61, 5}, {46, 66, 5}, {51, 71, 5}};
constexpr Copied dates_of_set[] = {{80, 88, 5}};
constexpr Copied volume_strings[] = {{40, 56, 4}, {44, 60, 4}, {48, 64, 4}};
// Name, password, description, user name.
constexpr Copied set_strings[] = {{64, 64, 4}, {68, 72, 4}, {72, 68, 4}, {76, 76, 4}};

template <std::size_t N>
bool copied_right(const Copied (&fields)[N], const std::string& entry, const Block_View& block) {
  for (const Copied& field : fields) {
    if (std::memcmp(entry.data() + field.in_entry, block.bytes.data() + field.in_block,
                    field.width) != 0) {
      return false;
    }
  }
  return true;
}

template <std::size_t N>
bool dates_right(const Copied (&fields)[N], const std::string& entry, const Block_View& block) {
  for (const Copied& field : fields) {
    const std::string_view copy = std::string_view(entry).substr(field.in_entry, field.width);
    if (!same_date(copy, block.date(field.in_block))) return false;
  }
  return true;
}

template <class T>
T get(const std::string& bytes, unsigned int offset) {
  return load_le<T>(bytes.data() + offset);
}

// True if the tape address at `at` gives `text`, behind the first `fixed` bytes of the entry.
bool holds(const std::string& entry, unsigned int fixed, unsigned int at, std::string_view text) {
  const std::size_t size = get<unsigned short>(entry, at);
  const std::size_t offset = get<unsigned short>(entry, at + 2);
  if (size == 0) return text.empty() && offset == 0;
  return offset >= fixed && offset <= entry.size() && size <= entry.size() - offset &&
         text == std::string_view(entry).substr(offset, size);
}

template <std::size_t N>
bool strings_right(const Copied (&strings)[N], const std::string& entry, unsigned int fixed,
                   const Block_View& block) {
  for (const Copied& field : strings) {
    std::string_view text;
    if (!block.string(field.in_block, text) || !holds(entry, fixed, field.in_entry, text)) {
      return false;
    }
  }
  return true;
}

}  // namespace

void Media_Catalog_Check::check(bool right, unsigned long long position, const char* text) {
  if (!right) on_fault_(position, text);
}

void Media_Catalog_Check::run() {
  if (walk_.catalog().tfdd != 0) check_detail();
  if (walk_.catalog().tsmp != 0) check_set_map();
}

void Media_Catalog_Check::check_detail() {
  unsigned long long position = walk_.catalog().tfdd;
  const unsigned long long end = position + walk_.catalog().tfdd_length;
  while (check_detail_entry(position, end)) {
  }
  const Media_Counts& counts = walk_.counts();
  check(walk_.lost() || (entries_ == counts.volumes + counts.directories + counts.files &&
                         address_sum_ == counts.address_sum),
        walk_.catalog().tfdd, "TFDD stream doesn't list each block of the set once");
}

// Moves behind one entry; false at the end.
bool Media_Catalog_Check::check_detail_entry(unsigned long long& position, unsigned long long end) {
  std::string entry;
  if (!load(position, end, fdd_header_size, entry)) {
    on_fault_(position, "TFDD stream has no FEND entry");
    return false;
  }
  if (get<unsigned int>(entry, fdd_at::type) == block_fend) {
    check_end(position, end, get<unsigned short>(entry, 0));
    check(entry.find_first_not_of('\0', fdd_at::type + 4) == std::string::npos, position,
          "FEND entry isn't zero");
    return false;
  }
  if (!load_entry(position, end, entry)) {
    on_fault_(position, "TFDD entry is damaged");
    return false;
  }
  ++entries_;
  const auto address = get<unsigned long long>(entry, fdd_at::format_logical_address);
  check(address > last_address_, position, "TFDD entries aren't in the order of their blocks");
  last_address_ = address;
  address_sum_ += mixed(address);
  check_entry(position, entry);
  position += entry.size();
  return true;
}

// The length of the last entry reaches to the next physical block, as if its own bytes weren't
// there.
void Media_Catalog_Check::check_end(unsigned long long position, unsigned long long end,
                                    unsigned short length) {
  check(position + fdd_header_size == end, position, "FEND entry isn't the last");
  const unsigned long long physical = walk_.geometry().physical;
  const unsigned long long used = position - (walk_.catalog().tfdd - stream_header_size);
  const unsigned long long fill = (physical - used % physical) % physical;
  check(length == static_cast<unsigned short>(fdd_header_size + fill), position,
        "FEND entry has a wrong length");
}

void Media_Catalog_Check::check_entry(unsigned long long position, const std::string& entry) {
  const auto type = get<unsigned int>(entry, fdd_at::type);
  const auto address = get<unsigned long long>(entry, fdd_at::format_logical_address);
  Media_Block found;
  if (!find_block(address, type, found)) {
    on_fault_(position, "no block of its type stands where this entry points");
    return;
  }
  const Block_View& block = found.view;
  const bool fields =
      type == block_volb
          ? copied_right(volume_fields, entry, block) && dates_right(volume_dates, entry, block)
          : copied_right(file_fields, entry, block) && dates_right(file_dates, entry, block);
  check(copied_right(header_fields, entry, block) && fields, position,
        "entry differs from its block");
  check(get<unsigned short>(entry, fdd_at::media_sequence_number) == seq_, position,
        "entry belongs to another media");
  const unsigned int os_data =
      type == block_volb ? +fdd_volume_at::os_data : +fdd_named_at::os_data;
  check(get<unsigned int>(entry, fdd_at::link) == 0 && entry[fdd_at::unused] == 0 &&
            get<unsigned int>(entry, os_data) == 0,
        position, "entry has a field that no entry has");
  check_strings(position, entry, found);
}

void Media_Catalog_Check::check_strings(unsigned long long position, const std::string& entry,
                                        const Media_Block& block) {
  const bool right =
      block.view.header.type == block_volb
          ? strings_right(volume_strings, entry, fdd_volume_size, block.view)
          : holds(entry, fdd_named_size, fdd_named_at::name, name_of(window_, block));
  check(right, position, "entry has another name than its block");
}

void Media_Catalog_Check::check_set_map() {
  unsigned long long position = walk_.catalog().tsmp;
  const unsigned long long end = position + walk_.catalog().tsmp_length;
  std::string header;
  Media_Block tape;
  if (!load(position, end, set_map_header_size, header) || !find_block(0, block_tape, tape)) {
    on_fault_(position, "set map is cut off");
    return;
  }
  check(get<unsigned int>(header, 0) == tape.view.get<unsigned int>(tape_at::media_family_id),
        position, "set map belongs to another media family");
  check(get<unsigned short>(header, 4) == 1 && get<unsigned short>(header, 6) == 0, position,
        "set map has a wrong number of sets");
  position += set_map_header_size;
  std::string entry;
  if (!load(position, end, sm_entry_size, entry) ||
      !load(position, end, get<unsigned short>(entry, 0), entry) || entry.size() < sm_entry_size) {
    on_fault_(position, "set map entry is damaged");
    return;
  }
  check_set_entry(position, entry);
  position += entry.size();
  unsigned long long volumes = 0;
  for (; position < end; ++volumes) {
    if (!load_entry(position, end, entry) || get<unsigned int>(entry, fdd_at::type) != block_volb) {
      on_fault_(position, "set map has a damaged volume");
      return;
    }
    check_entry(position, entry);
    position += entry.size();
  }
  check(walk_.lost() || volumes == walk_.counts().volumes, walk_.catalog().tsmp,
        "set map lists another number of volumes than the media has");
}

void Media_Catalog_Check::check_set_entry(unsigned long long position, const std::string& entry) {
  Media_Block found;
  if (!find_block(get<unsigned long long>(entry, sm_at::format_logical_address), block_sset,
                  found)) {
    on_fault_(position, "no SSET block stands where the set map points");
    return;
  }
  check(copied_right(set_fields, entry, found.view) && dates_right(dates_of_set, entry, found.view),
        position, "set map entry differs from its block");
  check(strings_right(set_strings, entry, sm_entry_size, found.view), position,
        "set map entry has other names than its block");
  check(get<unsigned short>(entry, sm_at::media_sequence_number) == seq_ &&
            get<unsigned short>(entry, sm_at::fdd_media_sequence_number) == 0,
        position, "set map entry belongs to another media");
  check(get<unsigned long long>(entry, sm_at::fdd_pba) ==
            (walk_.catalog().tfdd - stream_header_size) / walk_.geometry().physical,
        position + sm_at::fdd_pba, "set map has a wrong address of the TFDD stream");
  if (!walk_.lost()) check_set_counts(position, entry);
}

void Media_Catalog_Check::check_set_counts(unsigned long long position, const std::string& entry) {
  const Media_Counts& counts = walk_.counts();
  check(get<unsigned int>(entry, sm_at::directories) == counts.directories &&
            get<unsigned int>(entry, sm_at::files) == counts.files &&
            get<unsigned int>(entry, sm_at::corrupt_files) == 0 &&
            get<unsigned long long>(entry, sm_at::displayable_size) == counts.file_size &&
            get<unsigned short>(entry, sm_at::volumes) == counts.volumes,
        position + sm_at::directories, "set map counts the blocks wrongly");
}

bool Media_Catalog_Check::load(unsigned long long position, unsigned long long end,
                               std::size_t size, std::string& bytes) {
  if (position > end || size > end - position) return false;
  const char* data = entry_window_.view(position, size);
  if (data == nullptr) return false;
  bytes.assign(data, size);
  return true;
}

// Loads an entry of the TFDD form whose type and length fit together.
bool Media_Catalog_Check::load_entry(unsigned long long position, unsigned long long end,
                                     std::string& entry) {
  if (!load(position, end, fdd_header_size, entry)) return false;
  const Block_Layout* layout = block_layout(get<unsigned int>(entry, fdd_at::type));
  if (layout == nullptr || layout->name == 0) return false;
  const unsigned int fixed = layout->type == block_volb ? fdd_volume_size : fdd_named_size;
  const auto length = get<unsigned short>(entry, 0);
  return length >= fixed && load(position, end, length, entry);
}

bool Media_Catalog_Check::find_block(unsigned long long address, unsigned int type,
                                     Media_Block& block) {
  const Media_Geometry& geometry = walk_.geometry();
  if (address > window_.size() / geometry.logical) return false;
  const unsigned long long position = address * geometry.logical;
  return block_stands_at(window_, geometry, position) &&
         load_block(window_, position, block_bytes_, block) && block.view.header.type == type;
}

}  // namespace MTF
