#include "mtf/writer/tfdd_stream.h"

#include <cstdio>
#include <cstring>

#include "mtf/common/round_up.h"
#include "mtf/common/stream.h"
#include "mtf/writer/dblk_writer.h"
#include "services/assertion.h"

namespace MTF {
namespace {

constexpr unsigned long long tfdd_buffer_size = 0x20000;

}  // namespace

TFDD_Stream::TFDD_Stream(const Backup_Option* opt)
    : opt_(opt), file_(tfdd_buffer_size), block_(8) {}

bool TFDD_Stream::open(const std::string& path) {
  path_ = path;
  size_ = 0;
  seq_ = 0;
  if (file_.open(path_.c_str(), MTF_FS::write_flags, MTF_FS::share_all) != 0) return false;
  if (!block_.expand(FDD_Hdr::fixed_size)) return false;
  std::memset(block_.data(), 0, Stream_Hdr::fixed_size);
  return append(block_.data(), Stream_Hdr::fixed_size);
}

bool TFDD_Stream::append(const char* content, unsigned short size) {
  MTF_ASSERT_NOT_NULL(content, false);
  if (file_.sputn(content, size) != static_cast<std::streamsize>(size)) return false;
  size_ += size;
  return true;
}

bool TFDD_Stream::add_tape_blk(const Tape_Blk& blk) {
  seq_ = blk.media_sequence_number();
  return true;
}

bool TFDD_Stream::add_sset_blk(const SSet_Blk&) {
  return true;
}

bool TFDD_Stream::add_cfil_blk(const CFil_Blk&) {
  return true;
}

bool TFDD_Stream::add_vol_blk(const Vol_Blk& blk) {
  FDD_Vol_Blk entry(block_, true);
  return entry.set(blk, seq_) && append_entry(entry);
}

template <class Entry, class Blk>
bool TFDD_Stream::add_named(const Blk& blk, const std::string& name) {
  Entry entry(block_, true);
  return entry.set(blk, seq_, name) && append_entry(entry);
}

template <class Entry>
bool TFDD_Stream::append_entry(const Entry& entry) {
  return entry.name_size() != 0 && append(entry.image(), entry.hdr().length());
}

bool TFDD_Stream::add_dir_blk(const Dir_Blk& blk, const std::string& name) {
  return add_named<FDD_Dir_Blk>(blk, name);
}

bool TFDD_Stream::add_file_blk(const File_Blk& blk, const std::string& name) {
  return add_named<FDD_File_Blk>(blk, name);
}

bool TFDD_Stream::add_slnk_blk(const SLnk_Blk& blk, const std::string& name) {
  return add_named<FDD_SLnk_Blk>(blk, name);
}

bool TFDD_Stream::add_hlnk_blk(const HLnk_Blk& blk, const std::string& name) {
  return add_named<FDD_HLnk_Blk>(blk, name);
}

bool TFDD_Stream::add_devb_blk(const Devb_Blk& blk, const std::string& name) {
  return add_named<FDD_Devb_Blk>(blk, name);
}

bool TFDD_Stream::add_pdat_blk(const PDat_Blk& blk, const std::string& name) {
  return add_named<FDD_PDat_Blk>(blk, name);
}

bool TFDD_Stream::end() {
  return append_end() && write_header() && file_.close() == 0;
}

// The length of the FEND entry reaches to the next physical block as if the entry took no room.
bool TFDD_Stream::append_end() {
  MTF_ASSERT_NOT_NULL(block_.data(), false);
  const unsigned long long end = round_up<unsigned long long>(size_, opt_->physical_block_size);
  std::memset(block_.data(), 0, FDD_Hdr::fixed_size);
  FDD_Hdr hdr(block_.data(), FDD_Hdr::fixed_size);
  hdr.length(static_cast<unsigned short>(FDD_Hdr::fixed_size + (end - size_)));
  hdr.type(block_fend);
  return append(block_.data(), FDD_Hdr::fixed_size);
}

bool TFDD_Stream::write_header() {
  const unsigned long long size = size_;
  if (file_.seek(0, SEEK_SET) == -1) return false;
  std::memset(block_.data(), 0, Stream_Hdr::fixed_size);
  Stream_Hdr hdr(block_.data(), Stream_Hdr::fixed_size);
  hdr.id(stream_tfdd);
  hdr.length(size - Stream_Hdr::fixed_size);
  hdr.checksum(hdr.calc_checksum());
  if (!append(block_.data(), Stream_Hdr::fixed_size)) return false;
  size_ = size;  // the bytes went over others
  return true;
}

long long TFDD_Stream::write(IWriter& writer) {
  file_.close();
  return copy_file(path_, writer);
}

}  // namespace MTF
