#include "mtf/reader/catalog_walker.h"

#include "mtf/reader/block_view.h"
#include "services/bytes.h"
#include "services/checksum.h"

namespace MTF {
namespace {

constexpr unsigned int summary_size = 96;
constexpr unsigned int summary_checksum_at = 94;
constexpr unsigned int catalog_mark_at = 2;
constexpr unsigned int record_header_size = 64;
constexpr unsigned int record_checksum_at = 62;
constexpr unsigned int volume_fixed_size = 68;
constexpr unsigned int entry_fixed_size = 73;

constexpr unsigned long long small_limit = 102401;     // `space` below it is small
constexpr unsigned long long large_limit = 524287999;  // `space` above it is large

// Where the counts stand in the summary.
constexpr struct {
  unsigned int offset;
  unsigned long long Catalog_Totals::*member;
  const char* name;
} totals[] = {
    {6, &Catalog_Totals::total_size, "total_size"},
    {14, &Catalog_Totals::inc_size, "inc_size"},
    {30, &Catalog_Totals::vol_count, "vol_count"},
    {38, &Catalog_Totals::dir_count, "dir_count"},
    {46, &Catalog_Totals::file_count, "file_count"},
    {54, &Catalog_Totals::large_file_count, "large_file_count"},
    {62, &Catalog_Totals::small_file_count, "small_file_count"},
    {70, &Catalog_Totals::inc_file_count, "inc_file_count"},
};

bool is_known_entry(unsigned int type) {
  return is_file_like(type) || type == block_volb || type == block_dirb || type == block_pdat;
}

bool sound_header(const char* bytes) {
  const auto type = load_le<unsigned int>(bytes + 2);
  return (is_known_entry(type) || type == block_fend) &&
         load_le<unsigned short>(bytes + record_checksum_at) ==
             header_checksum(bytes, record_checksum_at);
}

}  // namespace

void Catalog_Walker::open() {
  summary_sound_ = open_summary();
  position_ = summary_size;
  if (!open_metadata()) {
    lost_ = true;
    find_record();
  }
}

bool Catalog_Walker::open_summary() {
  const char* bytes = window_.view(0, summary_size);
  if (bytes == nullptr) {
    on_fault_(0, "the summary is cut off, or can't be read");
    return false;
  }
  if (load_le<unsigned short>(bytes + summary_checksum_at) !=
      header_checksum(bytes, summary_checksum_at)) {
    on_fault_(0, "the summary is damaged");
    return false;
  }
  if (load_le<unsigned int>(bytes + catalog_mark_at) != 1) {
    on_fault_(catalog_mark_at, "the catalog mark is missing");
  }
  for (const auto& row : totals) {
    stored_.*row.member = load_le<unsigned long long>(bytes + row.offset);
  }
  return true;
}

bool Catalog_Walker::open_metadata() {
  const char* bytes = window_.view(position_, stream_header_size);
  if (bytes == nullptr) {
    on_fault_(position_, "the metadata stream is cut off, or can't be read");
    return false;
  }
  const Stream_Header header = read_stream_header(bytes);
  const unsigned long long text = position_ + stream_header_size;
  if (!header.intact || header.id != stream_meta || !window_.holds(text, header.length)) {
    on_fault_(position_, "the metadata stream is damaged");
    return false;
  }
  metadata_position_ = text;
  metadata_length_ = header.length;
  position_ = text + header.length;
  return true;
}

bool Catalog_Walker::next(Catalog_Record& record) {
  while (!done_) {
    const char* header = window_.view(position_, record_header_size);
    if (header == nullptr) {
      on_fault_(position_, "the catalog has no FEND record, or can't be read");
      done_ = true;
      return false;
    }
    if (sound_header(header)) {
      if (load_le<unsigned int>(header + 2) == block_fend) {
        if (take_end(header)) return false;
      } else if (parse(header, record)) {
        count(record);
        return true;
      }
    } else {
      on_fault_(position_, "a record is damaged");
    }
    lost_ = true;
    ++position_;
    find_record();
  }
  return false;
}

// Takes an entry with a sound header and moves behind it. False if its length or its name can't be
// trusted.
bool Catalog_Walker::parse(const char* header, Catalog_Record& record) {
  const auto length = load_le<unsigned short>(header);
  const auto type = load_le<unsigned int>(header + 2);
  const unsigned int fixed = type == block_volb ? volume_fixed_size : entry_fixed_size;
  const char* bytes = length < fixed ? nullptr : window_.view(position_, length);
  if (bytes == nullptr) {
    on_fault_(position_, block_word(type) + " record has a wrong length");
    return false;
  }
  const char* address = bytes + fixed - 4;
  const auto name_size = load_le<unsigned short>(address);
  const auto name_at = load_le<unsigned short>(address + 2);
  if (name_size == 0 || name_at < fixed || name_at > length || name_size > length - name_at) {
    on_fault_(position_, block_word(type) + " record has a name outside itself");
    return false;
  }
  record = {position_,
            type,
            load_le<unsigned short>(bytes + 6),
            load_le<unsigned long long>(bytes + 8),
            load_le<unsigned long long>(bytes + 16),
            load_le<unsigned long long>(bytes + 24),
            load_le<unsigned long long>(bytes + 32),
            load_le<unsigned short>(bytes + 40),
            load_le<unsigned int>(bytes + 44) |
                static_cast<unsigned long long>(load_le<unsigned int>(bytes + 56)) << 32,
            load_le<unsigned long long>(bytes + 48),
            load_le<unsigned char>(bytes + 60),
            load_le<signed char>(bytes + 61),
            type == block_volb ? std::string_view()
                               : std::string_view(bytes + record_header_size, date_time_size),
            std::string_view(bytes + name_at, name_size)};
  position_ += length;
  return true;
}

// True if the FEND record is the last thing in the catalog.
bool Catalog_Walker::take_end(const char* header) {
  if (load_le<unsigned short>(header) != record_header_size) {
    on_fault_(position_, "FEND record has a wrong length");
  }
  if (position_ + record_header_size != window_.size()) {
    on_fault_(position_, "FEND record isn't the last");
    return false;
  }
  done_ = true;
  compare_totals();
  return true;
}

// Moves to the next place from the current one on where a sound record may stand.
void Catalog_Walker::find_record() {
  for (; window_.holds(position_, record_header_size); ++position_) {
    const char* bytes = window_.view(position_, record_header_size);
    if (bytes == nullptr) break;
    if (sound_header(bytes)) return;
  }
}

void Catalog_Walker::count(const Catalog_Record& record) {
  Catalog_Totals& sum = counted_;
  const bool current = record.seq == static_cast<unsigned short>(seq_);
  if (record.type == block_volb) ++sum.vol_count;
  if (record.type == block_dirb) ++sum.dir_count;
  if (is_file_like(record.type)) {
    ++sum.file_count;
    if (record.space < small_limit) {
      ++sum.small_file_count;
    } else if (record.space > large_limit) {
      ++sum.large_file_count;
    }
    if (current) ++sum.inc_file_count;
  }
  // A further name of a file takes no space of its own.
  if (record.type == block_hlnk) return;
  sum.total_size += record.space;
  if (current) sum.inc_size += record.space;
}

void Catalog_Walker::compare_totals() {
  if (!summary_sound_ || lost_) return;
  for (const auto& row : totals) {
    if (stored_.*row.member == counted_.*row.member) continue;
    on_fault_(row.offset, std::string("the summary's ") + row.name + " is " +
                              std::to_string(stored_.*row.member) + ", the entries give " +
                              std::to_string(counted_.*row.member));
  }
}

}  // namespace MTF
