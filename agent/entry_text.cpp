#include "agent/entry_text.h"

#include "services/text.h"

namespace agent {

const char* type_text(unsigned int type) {
  switch (type) {
    case MTF::block_volb:
      return "volume";
    case MTF::block_dirb:
      return "dir";
    case MTF::block_file:
      return "file";
    case MTF::block_hlnk:
      return "hardlink";
    case MTF::block_slnk:
      return "symlink";
    case MTF::block_devb:
      return "device";
    default:
      return "other";
  }
}

std::string kind_text(const MTF::Job_Entry& entry, MTF::Link_Targets& targets) {
  MTF::Device_Kind kind;
  std::string why;
  if (entry.type != MTF::block_devb || !targets.find_kind(entry, kind, why)) {
    return type_text(entry.type);
  }
  switch (kind) {
    case MTF::Device_Kind::fifo:
      return "fifo";
    case MTF::Device_Kind::character:
      return "chardev";
    default:
      return "blockdev";
  }
}

std::optional<unsigned long long> size_of(const MTF::Job_Entry& entry) {
  if (entry.type != MTF::block_hlnk) return entry.size;
  return entry.file ? std::optional(entry.file->size) : std::nullopt;
}

std::string bytes_text(const MTF::Job_Entry& entry) {
  const auto size = size_of(entry);
  return size ? std::to_string(*size) : "-";
}

json_spirit::Value bytes_json(const MTF::Job_Entry& entry) {
  const auto size = size_of(entry);
  return size ? json_spirit::Value(*size) : json_spirit::Value();
}

}  // namespace agent
