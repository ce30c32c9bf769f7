#include "mtf/reader/media_catalog_place.h"

#include "mtf/common/round_up.h"
#include "mtf/reader/block_loader.h"
#include "mtf/reader/stream_view.h"

namespace MTF {
namespace {

// Behind the EOTM block stand its padding and what the storage takes for a filemark.
constexpr unsigned int end_blocks = 16;

}  // namespace

bool Media_Catalog_Finder::find(unsigned int seq, Media_Catalog_Place& place, std::string& why) {
  Media_Block block;
  if (!load(0, block_tape, block) || !read_geometry(block.view, geometry_)) {
    return why = "doesn't begin with a sound TAPE block", false;
  }
  if (block.view.get<unsigned short>(tape_at::media_sequence_number) != seq) {
    return why = "media belongs to another job", false;
  }
  if (!find_eset(block, why)) return false;
  const auto fdd_pba = block.view.get<unsigned long long>(eset_at::fdd_pba);
  const auto sm_pba = block.view.get<unsigned long long>(eset_at::sm_pba);
  const unsigned long long blocks = window_.size() / geometry_.physical;
  if (fdd_pba == 0 || fdd_pba >= blocks || sm_pba == 0 || sm_pba >= blocks ||
      !find_stream(fdd_pba * geometry_.physical, stream_tfdd, place.tfdd, place.tfdd_length) ||
      !find_stream(sm_pba * geometry_.physical, stream_tsmp, place.tsmp, place.tsmp_length)) {
    return why = "catalog of the media is damaged", false;
  }
  return true;
}

bool Media_Catalog_Finder::corrupt_files(unsigned int& count) {
  Media_Block block;
  if (!load(0, block_tape, block) || !read_geometry(block.view, geometry_) || !find_end(block)) {
    return false;
  }
  const auto pba = block.view.get<unsigned long long>(eotm_at::last_eset_pba);
  if (pba >= window_.size() / geometry_.physical ||
      !load(pba * geometry_.physical, block_eset, block)) {
    return false;
  }
  count = block.view.get<unsigned int>(eset_at::corrupt_file_count);
  return true;
}

bool Media_Catalog_Finder::find_end(Media_Block& eotm) {
  const unsigned long long blocks = window_.size() / geometry_.physical;
  for (unsigned long long back = 1; back <= end_blocks && back < blocks; ++back) {
    if (load((blocks - back) * geometry_.physical, block_eotm, eotm)) return true;
  }
  return false;
}

// The last ESET block of a set with a catalog. The EOTM block points to the first copy, which was
// written before anybody knew where the catalog would stand; the second stands behind the catalog.
bool Media_Catalog_Finder::find_eset(Media_Block& eset, std::string& why) {
  if (!find_end(eset)) return why = "media doesn't end with a sound EOTM block", false;
  const auto pba = eset.view.get<unsigned long long>(eotm_at::last_eset_pba);
  if (pba >= window_.size() / geometry_.physical ||
      !load(pba * geometry_.physical, block_eset, eset)) {
    return why = "EOTM block doesn't point to a sound ESET block", false;
  }
  if (eset.view.get<unsigned long long>(eset_at::fdd_pba) != 0) return true;
  unsigned long long data, length;
  unsigned long long next = eset.position + eset.view.bytes.size();
  if (!find_stream(next, stream_tfdd, data, length)) {
    return why = "media has no catalog of its own, or it is damaged", false;
  }
  next = round_up<unsigned long long>(data + length, geometry_.physical);
  if (!find_stream(next, stream_tsmp, data, length)) {
    return why = "catalog of the media has no sound TSMP stream", false;
  }
  next = round_up<unsigned long long>(data + length, stream_alignment);
  if (!find_stream(next, stream_spad, data, length) || !load(data + length, block_eset, eset)) {
    return why = "no sound ESET block stands behind the catalog of the media", false;
  }
  return true;
}

bool Media_Catalog_Finder::find_stream(unsigned long long position, unsigned int id,
                                       unsigned long long& data, unsigned long long& length) {
  const char* bytes = window_.view(position, stream_header_size);
  if (bytes == nullptr) return false;
  const Stream_Header header = read_stream_header(bytes);
  data = position + stream_header_size;
  length = header.length;
  return header.intact && header.id == id && window_.holds(data, length);
}

bool Media_Catalog_Finder::load(unsigned long long position, unsigned int type,
                                Media_Block& block) {
  return load_block(window_, position, bytes_, block) && block.view.header.type == type;
}

}  // namespace MTF
