#include "mtf/reader/catalog_match.h"

#include <algorithm>
#include <cstring>

#include "mtf/reader/block_loader.h"
#include "mtf/reader/content_reader.h"
#include "mtf/reader/media_check.h"

namespace MTF {
namespace {

constexpr std::size_t compare_chunk = 0x8000;

}  // namespace

Catalog_Match::Catalog_Match(Catalog_Walker& catalog, Piece_Window& catalog_window,
                             Piece_Window* media_window, unsigned int seq, Earlier_Media& earlier,
                             const Fault_At& on_catalog_fault, const Fault_At& on_media_fault)
    : catalog_(catalog),
      catalog_window_(catalog_window),
      media_window_(media_window),
      seq_(static_cast<unsigned short>(seq)),
      earlier_(earlier),
      on_catalog_fault_(on_catalog_fault),
      on_media_fault_(on_media_fault) {}

void Catalog_Match::on_set(const Media_Set& set) {
  set_ = set;
  set_seen_ = true;
}

void Catalog_Match::on_metadata(unsigned long long position, unsigned long long length) {
  if (metadata_seen_) {
    on_media_fault_(position, "second metadata stream");
    return;
  }
  metadata_seen_ = true;
  if (catalog_.metadata_position() == 0) return;
  if (length != catalog_.metadata_length()) {
    on_catalog_fault_(catalog_.metadata_position(),
                      "the metadata has another length than that on the media");
    return;
  }
  compare_metadata(position);
}

void Catalog_Match::compare_metadata(unsigned long long position) {
  for (unsigned long long done = 0; done < catalog_.metadata_length();) {
    const auto size = static_cast<std::size_t>(
        std::min<unsigned long long>(compare_chunk, catalog_.metadata_length() - done));
    const char* here = catalog_window_.view(catalog_.metadata_position() + done, size);
    const char* there = media_window_->view(position + done, size);
    if (here == nullptr || there == nullptr || std::memcmp(here, there, size) != 0) {
      on_catalog_fault_(catalog_.metadata_position() + done,
                        "the metadata differs from that on the media");
      return;
    }
    done += size;
  }
}

// The addresses rise on both sides, so that what is missing on one side shows.
void Catalog_Match::on_object(const Media_Object& object) {
  while (next_current()) {
    if (record_.address > object.address) break;
    waiting_ = false;
    if (record_.address == object.address) return compare(object);
    fault("no sound block of the media stands where this entry points");
  }
  if (object.corrupt) return;
  on_media_fault_(object.position, "block has no entry in the catalog");
}

void Catalog_Match::finish() {
  while (next_current()) {
    waiting_ = false;
    if (media_window_ != nullptr) {
      fault("no sound block of the media stands where this entry points");
    }
  }
  if (media_window_ != nullptr && !metadata_seen_ && catalog_.metadata_position() != 0) {
    on_media_fault_(0, "the media has no metadata stream");
  }
}

// Brings record_ to the next entry of this job that no object has met; false at the end.
bool Catalog_Match::next_current() {
  while (!waiting_ && !ended_) {
    ended_ = !catalog_.next(record_);
    if (!ended_) take_entry();
  }
  return waiting_;
}

void Catalog_Match::take_entry() {
  ++entries_;
  if (record_.type == block_volb) volume_seen_ = true;
  if (!volume_seen_) fault("entry in front of the first volume");
  take_place();
  waiting_ = record_.seq == seq_;
  if (!waiting_) check_earlier();
}

// Only the paths of first names are kept.
void Catalog_Match::take_place() {
  const bool moves = record_.type == block_volb || record_.type == block_dirb;
  const bool first = (record_.flags & cat_first_link) != 0;
  if (!moves && !first) return;
  Job_Entry entry;
  if (!place_.find({record_.type, record_.string_type, record_.size, record_.date, record_.name},
                   entry)) {
    return;
  }
  if (first) first_names_.insert(hash_of(entry.path) ^ mixed(record_.ino));
}

// A further name must lead to a name that the same catalog has ahead of it.
void Catalog_Match::check_first_name(std::string_view path) {
  if (record_.type != block_hlnk || path.empty()) return;
  if (first_names_.count(hash_of(path) ^ mixed(record_.ino)) != 0) return;
  fault("the first name of the entry isn't in the catalog");
}

void Catalog_Match::compare(const Media_Object& object) {
  const auto check = [&](bool right, const char* text) {
    if (!right) fault(text);
  };
  if (object.corrupt) return fault("entry of a file that the media marks as corrupt");
  if (record_.type != object.type) {
    return fault("a " + block_word(object.type) + " block stands where this entry points");
  }
  check(record_.name == object.name, "entry has another name than its block");
  check(record_.size == object.size, "entry has another size than its block");
  check(same_date(record_.date, object.date), "entry has another date than its block");
  check(record_.string_type == object.string_type, "entry has another string type than its block");
  check_first_name(object.target);
  if (!set_seen_) return;
  check(record_.sset_off == set_.position && record_.sset_fla == set_.address,
        "entry has a wrong position of its set");
  check(record_.time_zone == set_.time_zone, "entry has another time zone than its set");
}

void Catalog_Match::check_earlier() {
  std::string why;
  Media_File* media = earlier_.find(record_.seq, why);
  if (media == nullptr) return fault(why);
  const auto tell = [&](const std::string& text) {
    fault("in " + earlier_.name(record_.seq) + ": " + text);
  };
  Media_Block block;
  if (!media->find_block(record_.address, record_.type, block, why)) return tell(why);
  if (record_.size != block.view.header.displayable_size) tell("block of another size");
  if (record_.type != block_volb &&
      !same_date(record_.date, block.view.date(file_at::last_modification_date))) {
    tell("block of another date");
  }
  if (record_.name != name_of(media->window(), block)) tell("block of another name");
  if (record_.type == block_hlnk) check_earlier_link(*media, block);
  check_set_of_earlier(*media);
}

void Catalog_Match::check_earlier_link(Media_File& media, const Media_Block& block) {
  Content content;
  std::string why;
  if (read_description(media, block, content, why)) return check_first_name(content.target);
  fault("in " + earlier_.name(record_.seq) + ": " + why);
}

void Catalog_Match::check_set_of_earlier(Media_File& media) {
  if (!known_ || known_set_.seq != record_.seq || known_set_.address != record_.sset_fla) {
    Media_Block block;
    std::string why;
    if (!media.find_block(record_.sset_fla, block_sset, block, why)) {
      return fault("set of the entry in " + earlier_.name(record_.seq) + ": " + why);
    }
    known_set_ = {record_.seq, record_.sset_fla, block.view.get<signed char>(sset_at::time_zone)};
    known_ = true;
  }
  if (known_set_.time_zone != record_.time_zone) fault("entry has another time zone than its set");
}

}  // namespace MTF
