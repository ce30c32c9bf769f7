#include "mtf/reader/tree_place.h"

#include <algorithm>

#include "mtf/reader/block_view.h"
#include "services/date.h"

namespace MTF {
namespace {

bool holds_others(unsigned int type) {
  return type == block_volb || type == block_dirb;
}

}  // namespace

// The components of volumes and directories are separated by NUL on a media.
bool tree_text(unsigned int type, unsigned char string_type, std::string_view name,
               std::string& out) {
  if (!mtf_string_to_utf8(name.data(), name.data() + name.size(), string_type, out)) return false;
  if (holds_others(type)) {
    std::replace(out.begin(), out.end(), '\0', '\\');
    while (!out.empty() && out.back() == '\\') out.pop_back();
    if (!out.empty() && out.front() == '\\') out.erase(0, 1);
  }
  return true;
}

// FNV-1a; the standard's hash of a string needn't have as many bits.
unsigned long long hash_of(std::string_view path) {
  unsigned long long hash = 0xCBF29CE484222325;
  for (const char letter : path) {
    hash = (hash ^ static_cast<unsigned char>(letter)) * 0x100000001B3;
  }
  return hash;
}

void Tree_Place::begin_channel() {
  volume_.clear();
  directory_.clear();
}

bool Tree_Place::find(const Tree_Item& item, Job_Entry& entry) {
  if (!find_path(item, entry.path)) return false;
  entry.type = item.type;
  entry.size = holds_others(item.type) ? 0 : item.size;
  const auto* date = reinterpret_cast<const unsigned char*>(item.date.data());
  entry.dated = item.date.find_first_not_of('\0') != std::string_view::npos;
  entry.mtime = entry.dated ? mtf_date_time_to_time(date) : 0;
  return true;
}

bool Tree_Place::find_path(const Tree_Item& item, std::string& path) {
  std::string text;
  if (!tree_text(item.type, item.string_type, item.name, text) || text.empty()) return false;
  if (item.type == block_volb) {
    volume_ = text;
    directory_.clear();
    path = volume_;
    return true;
  }
  if (volume_.empty()) return false;
  if (item.type == block_dirb) {
    path = volume_ + '\\' + text;
    directory_ = text + '\\';
    return true;
  }
  path = volume_ + '\\' + directory_ + text;
  return true;
}

void Tree_Place::assume_volume() {
  if (volume_.empty()) volume_ = "/";
}

std::string Tree_Place::enter_lost(unsigned int directory_id) {
  std::string name = "lost+found\\directory-" + std::to_string(directory_id);
  directory_ = name + '\\';
  return name;
}

bool Tree_Place::first(const Job_Entry& entry) {
  return !holds_others(entry.type) || given_.insert(hash_of(entry.path)).second;
}

}  // namespace MTF
