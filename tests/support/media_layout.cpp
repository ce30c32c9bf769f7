#include "tests/support/media_layout.h"

#include <algorithm>

namespace test_support {
namespace {

constexpr std::size_t stream_header = 22;
constexpr std::size_t frame_header = 24;
constexpr unsigned compressed = 0x10;

bool is_block(const std::string& id) {
  static const char* const ids[] = {"TAPE", "SSET", "VOLB", "DIRB", "FILE", "CFIL",
                                    "ESET", "EOTM", "PDAT", "HLNK", "KNLS", "DEVB"};
  return std::find(std::begin(ids), std::end(ids), id) != std::end(ids);
}

// Where the data of a stream in frames ends.
std::size_t end_of_frames(const std::string& media, const Item& stream) {
  std::size_t at = stream.data;
  for (unsigned long long taken = 0; taken < stream.length && at + frame_header <= media.size();) {
    taken += get_le(media, at + 12, 4);
    at += frame_header + get_le(media, at + 16, 4);
  }
  return at;
}

std::size_t end_of(const std::string& media, const Item& stream) {
  const bool frames = (get_le(media, stream.at + 6, 2) & compressed) != 0;
  return frames ? end_of_frames(media, stream) : stream.data + stream.length;
}

}  // namespace

std::vector<Item> media_items(const std::string& media) {
  std::vector<Item> items;
  for (std::size_t at = 0; at + stream_header <= media.size();) {
    Item item{media.substr(at, 4), at, false, 0, 0};
    item.block = is_block(item.id);
    if (item.id == "MARK") {
      at += 4096;
    } else if (item.block) {
      at += get_le(media, at + 8, 2);
    } else {
      item.data = at + stream_header;
      item.length = get_le(media, at + 8, 8);
      const bool letters =
          std::all_of(item.id.begin(), item.id.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
      // The set map stands on a physical block of its own.
      const std::size_t grid = item.id == "TFDD" ? 4096 : 4;
      at = (end_of(media, item) + grid - 1) / grid * grid;
      if (!letters || at > media.size() + grid) {
        items.push_back({"????", item.at, false, 0, 0});
        return items;
      }
    }
    items.push_back(item);
  }
  return items;
}

std::string media_order(const std::string& media) {
  std::string order;
  for (const Item& item : media_items(media)) {
    if (item.id != "SPAD") order += (order.empty() ? "" : " ") + item.id;
  }
  return order;
}

std::string stream_data(const std::string& media, const std::string& id, std::size_t n) {
  for (const Item& item : media_items(media)) {
    if (item.id == id && n-- == 0) return media.substr(item.data, item.length);
  }
  return "none";
}

std::string entry_text(const std::string& block) {
  const std::string type = block.substr(2, 4);
  if (type == "FEND") return type;
  const std::size_t address = type == "VOLB" ? 64 : 69;
  std::string name = block.substr(get_le(block, address + 2, 2), get_le(block, address, 2));
  std::replace(name.begin(), name.end(), '\0', '\\');
  return type + ' ' + name;
}

std::vector<std::string> catalog_entries(const std::string& catalog) {
  std::vector<std::string> entries;
  if (catalog.size() < 96 + stream_header) return entries;
  std::size_t at = 96 + stream_header + get_le(catalog, 96 + 8, 8);
  while (at + 64 <= catalog.size()) {
    entries.push_back(entry_text(catalog.substr(at)));
    const std::size_t length = get_le(catalog, at, 2);
    if (length < 64) break;
    at += length;
  }
  return entries;
}

}  // namespace test_support
