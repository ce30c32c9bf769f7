#include "mtf/reader/stream_check.h"

#include <utility>

#include "mtf/reader/link_view.h"
#include "mtf/reader/security_view.h"
#include "services/bytes.h"

namespace MTF {
namespace {

constexpr unsigned long long max_name = 32767;  // MTF_PATH_MAX
constexpr unsigned int stat_fixed_size = 88;
constexpr unsigned int stat_owner_at = 80;
constexpr unsigned int stat_group_at = 84;
constexpr unsigned int stat_short_size = 24;
constexpr unsigned int stat_rdev_at = 48;

// True if `mode` is of the kind that the block is for; blocks of files aren't looked at.
bool mode_fits(unsigned int block_type, unsigned long long mode) {
  constexpr unsigned long long link = 0xA000;
  if (block_type == block_slnk) return (mode & mode_type_mask) == link;
  return block_type != block_devb || is_node_mode(mode);
}

}  // namespace

void Stream_Check::start(unsigned int block_type, bool name_in_stream) {
  block_type_ = block_type;
  name_wanted_ = name_in_stream;
  chunk_open_ = content_seen_ = sparse_allowed_ = false;
  count_ = 0;
  last_length_ = 0;
  name_.clear();
  target_.clear();
  missing_ = block_type == block_slnk   ? stream_ntrp
             : block_type == block_hlnk ? stream_link
             : block_type == block_devb ? stream_ctex
                                        : 0U;
  last_id_ = 0;
}

void Stream_Check::take(const Media_Stream& stream) {
  const unsigned int id = stream.header.id;
  if (id == stream_spad || id == stream_csum) return;
  ++count_;
  last_length_ = stream.header.length;
  if (!check_place(stream)) {
    on_fault_(stream.position, stream_word(id) + " stream has no place here");
    return;
  }
  switch (id) {
    case stream_fnam:
    case stream_pnam:
      check_name(stream);
      break;
    case stream_stan:
      check_content(stream);
      break;
    case stream_spar:
      check_sparse(stream);
      break;
    case stream_adat:
      sparse_allowed_ = true;
      break;
    case stream_ctex:
    case stream_stat:
      check_stat(stream);
      break;
    case stream_nacl:
    case stream_ntea:
      check_description(stream);
      break;
    case stream_ntrp:
    case stream_link:
      check_link(stream);
      break;
    default:
      break;
  }
}

void Stream_Check::end(unsigned long long position) {
  if (name_wanted_) on_fault_(position, "block has no name stream");
  if (chunk_open_) on_fault_(position, "the last chunk of a stream is missing");
  if (missing_ != 0) on_fault_(position, "block has no " + stream_word(missing_) + " stream");
  name_wanted_ = chunk_open_ = false;
  missing_ = 0;
}

// Links and devices have few streams, in one order, each once.
bool Stream_Check::check_place(const Media_Stream& stream) {
  const unsigned int id = stream.header.id;
  const bool named = id == stream_fnam;  // has a check of its own
  const unsigned int last = named ? last_id_ : std::exchange(last_id_, id);
  const bool first = last == 0;
  switch (block_type_) {
    case block_slnk:
      return named || (id == stream_ntrp && first) || (id == stream_ctex && last == stream_ntrp) ||
             (id == stream_ntea && last == stream_ctex);
    case block_hlnk:
      return named || (id == stream_link && first);
    case block_devb:
      return named || (id == stream_ctex && first) || (id == stream_ntea && last == stream_ctex);
    default:
      return id != stream_link;
  }
}

// Reparse data behind a file may be of any kind.
void Stream_Check::check_link(const Media_Stream& stream) {
  if (block_type_ != block_slnk && block_type_ != block_hlnk) return;
  missing_ = 0;
  const bool right =
      stream.content.size() == stream.header.length &&
      (stream.header.id == stream_link ? read_first_name(stream.content, target_)
                                       : read_symbolic_link(stream.content, target_));
  if (!right) {
    on_fault_(stream.position, stream_word(stream.header.id) + " stream has a wrong layout");
  }
}

void Stream_Check::check_name(const Media_Stream& stream) {
  const unsigned int expected = block_type_ == block_dirb ? stream_pnam : stream_fnam;
  if (!name_wanted_ || stream.header.id != expected || count_ != 1) {
    on_fault_(stream.position, stream_word(stream.header.id) + " stream has no place here");
  }
  if (stream.header.length == 0 || stream.header.length > max_name) {
    on_fault_(stream.position, "name stream has a wrong length");
    return;
  }
  name_wanted_ = false;
  name_ = stream.content;
}

void Stream_Check::check_content(const Media_Stream& stream) {
  const bool part = stream.header.is(mf_variable);
  const bool last = stream.header.is(mf_variable_end);
  if (content_seen_ && !chunk_open_) on_fault_(stream.position, "second STAN stream of a block");
  if (part && last) on_fault_(stream.position, "chunk is both the last and not the last");
  if (chunk_open_ && !part && !last) on_fault_(stream.position, "STAN stream between chunks");
  const bool empty = stream.header.length == 0;
  if (empty != ((stream.header.file_system_attributes & fs_empty_data) != 0)) {
    on_fault_(stream.position, "STAN stream is empty or marked as sparse, but not both");
  }
  chunk_open_ = part;
  content_seen_ = true;
  sparse_allowed_ = empty;
}

void Stream_Check::check_sparse(const Media_Stream& stream) {
  if (!sparse_allowed_) on_fault_(stream.position, "SPAR stream without a sparse stream before it");
  if (stream.header.length < sparse_offset_size) {
    on_fault_(stream.position, "SPAR stream is shorter than its offset");
    return;
  }
  if (stream.content.size() < sparse_offset_size) return;
  const auto offset = load_le<unsigned long long>(stream.content.data());
  const unsigned long long size = stream.header.length - sparse_offset_size;
  constexpr unsigned long long largest = ~0ULL >> 1;
  if (offset > largest || size > largest - offset) {
    on_fault_(stream.position, "SPAR stream has a wrong offset");
  }
}

void Stream_Check::check_stat(const Media_Stream& stream) {
  Stat_Extent record;
  const bool right = stream.header.id == stream_stat
                         ? stream.header.length == stat_short_size
                         : stream.content.size() == stream.header.length &&
                               read_stat_extent(stream.content, record);
  if (missing_ == stream.header.id) missing_ = 0;
  if (!right) {
    on_fault_(stream.position, stream_word(stream.header.id) + " stream has a wrong layout");
  } else if (stream.header.id == stream_ctex && !mode_fits(block_type_, record.mode)) {
    on_fault_(stream.position, "CTEX stream is that of another kind of entry");
  }
}

// A stream that is too long to be held in one piece isn't checked.
void Stream_Check::check_description(const Media_Stream& stream) {
  if (stream.content.size() != stream.header.length) return;
  Stat_Extent record;
  bool known;
  std::vector<Extended_Attribute> attributes;
  const bool right = stream.header.id == stream_nacl ? read_security(stream.content, record, known)
                                                     : read_attributes(stream.content, attributes);
  if (!right) {
    on_fault_(stream.position, stream_word(stream.header.id) + " stream has a wrong layout");
  }
}

bool read_stat_extent(std::string_view data, Stat_Extent& out) {
  if (data.size() < stat_fixed_size) return false;
  std::size_t names = 0;
  for (const unsigned int at : {stat_owner_at, stat_group_at}) {
    const std::size_t size = load_le<unsigned short>(data.data() + at);
    const std::size_t offset = load_le<unsigned short>(data.data() + at + 2);
    if (size == 0) continue;
    if (offset < stat_fixed_size || offset > data.size() || size > data.size() - offset) {
      return false;
    }
    names += size;
  }
  if (stat_fixed_size + names != data.size()) return false;
  out.gid = load_le<unsigned long long>(data.data());
  out.uid = load_le<unsigned long long>(data.data() + 8);
  out.mode = load_le<unsigned long long>(data.data() + 16);
  out.rdev = load_le<unsigned long long>(data.data() + stat_rdev_at);
  return true;
}

}  // namespace MTF
