#include "mtf/writer/tsmp_stream.h"

#include <cstring>

#include "mtf/common/stream.h"

namespace MTF {
namespace {

constexpr unsigned long long first_mapping = 0x100000;
constexpr unsigned int usual_entry_size = 1024;

}  // namespace

TSMP_Stream::TSMP_Stream(const Backup_Option* opt)
    : opt_(opt), map_(false), block_(8), header_(nullptr) {
  block_.expand(usual_entry_size);
}

bool TSMP_Stream::open(const std::string& path) {
  path_ = path;
  header_at_ = 0;
  entry_at_ = 0;
  if (!map_.map(path_.c_str(), first_mapping)) return false;
  std::memset(map_.at(0), 0, Stream_Hdr::fixed_size);
  Stream_Hdr(map_.at(0), Stream_Hdr::fixed_size).id(stream_tsmp);
  used_ = Stream_Hdr::fixed_size;
  return true;
}

bool TSMP_Stream::append(const char* data, unsigned long long size) {
  if (!map_.remap(used_ + size)) return false;
  if (data != nullptr) {
    std::memcpy(map_.at(used_), data, size);
  } else {
    std::memset(map_.at(used_), 0, size);
  }
  used_ += size;
  take_views();
  return true;
}

void TSMP_Stream::take_views() {
  if (header_at_ != 0) header_ = Set_Map_Hdr(map_.at(header_at_));
  if (entry_at_ != 0) entry_.set_buffer(map_.at(entry_at_), entry_size_);
}

bool TSMP_Stream::add_tape_blk(const Tape_Blk& blk) {
  const unsigned long long place = used_;
  if (!append(nullptr, Set_Map_Hdr::fixed_size)) return false;
  header_at_ = place;
  take_views();
  header_.media_family_id(blk.media_family_id());
  seq_ = blk.media_sequence_number();
  password_algorithm_ = blk.password_encryption_algorithm();
  return true;
}

bool TSMP_Stream::add_sset_blk(const SSet_Blk& blk) {
  const auto place = static_cast<unsigned int>(used_);
  const unsigned int size = SM_Entry::size_for(blk);
  if (!append(nullptr, size)) return false;
  entry_at_ = place;
  entry_size_ = size;
  take_views();
  header_.set_count(static_cast<unsigned short>(header_.set_count() + 1));
  entry_.set(blk, seq_, password_algorithm_);
  return true;
}

bool TSMP_Stream::add_vol_blk(const Vol_Blk& blk) {
  FDD_Vol_Blk volume(block_, true);
  if (!volume.set(blk, seq_)) return false;
  if (!append(volume.image(), volume.hdr().length())) return false;
  entry_.volume_count(static_cast<unsigned short>(entry_.volume_count() + 1));
  return true;
}

bool TSMP_Stream::add_dir_blk(const Dir_Blk&) {
  entry_.directory_count(entry_.directory_count() + 1);
  return true;
}

bool TSMP_Stream::count_file(const File_Shaped_Blk& blk) {
  entry_.file_count(entry_.file_count() + 1);
  entry_.displayable_size(entry_.displayable_size() + blk.hdr().displayable_size());
  return true;
}

bool TSMP_Stream::add_file_blk(const File_Blk& blk) {
  return count_file(blk);
}

bool TSMP_Stream::add_slnk_blk(const SLnk_Blk& blk) {
  return count_file(blk);
}

bool TSMP_Stream::add_hlnk_blk(const HLnk_Blk& blk) {
  return count_file(blk);
}

bool TSMP_Stream::add_devb_blk(const Devb_Blk& blk) {
  return count_file(blk);
}

bool TSMP_Stream::add_pdat_blk(const PDat_Blk& blk) {
  return count_file(blk);
}

bool TSMP_Stream::add_cfil_blk(const CFil_Blk&) {
  entry_.corrupt_file_count(entry_.corrupt_file_count() + 1);
  return true;
}

bool TSMP_Stream::add_eset_blk(const ESet_Blk& blk) {
  entry_.fdd_media_sequence_number(blk.fdd_media_sequence_number());
  if (blk.fdd_pba() != 0) entry_.fdd_pba(blk.fdd_pba());
  return true;
}

bool TSMP_Stream::set_fdd_pba(unsigned long long pba) {
  entry_.fdd_pba(pba);
  return true;
}

long long TSMP_Stream::write(IWriter& writer) {
  Stream_Hdr hdr(map_.at(0), Stream_Hdr::fixed_size);
  hdr.length(used_ - Stream_Hdr::fixed_size);
  hdr.checksum(hdr.calc_checksum());
  return map_.write(writer, opt_->physical_block_size, used_);
}

}  // namespace MTF
