#include "mtf/writer/catalog_stream.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_unistd.h>

#include <cstring>

#include "mtf/writer/dblk_writer.h"
#include "services/assertion.h"

namespace MTF {
namespace {

constexpr unsigned long long catalog_buffer_size = 0x20000;
constexpr unsigned int in_catalog = 1;

}  // namespace

Catalog_Stream::Catalog_Stream(unsigned long long base_fla, unsigned int format_logical_block_size,
                               unsigned int physical_block_size, unsigned short option_flags)
    : file_(catalog_buffer_size),
      block_(8),
      base_fla_(base_fla),
      format_logical_block_size_(format_logical_block_size),
      physical_block_size_(physical_block_size),
      option_flags_(option_flags) {
  summary_.catalog_mark(in_catalog);
}

bool Catalog_Stream::open(const std::string& path) {
  path_ = path;
  length_ = 0;
  seq_ = 0;
  sset_off_ = 0;
  sset_fla_ = 0;
  ACE_OS::unlink(path_.c_str());
  if (file_.open(path_.c_str(), MTF_FS::write_flags, MTF_FS::share_all) != 0) return false;
  if (!block_.expand(Cat_Summary::file_size)) return false;
  std::memset(block_.data(), 0, Cat_Summary::file_size);
  return append(block_.data(), Cat_Summary::file_size);
}

bool Catalog_Stream::append(const char* content, unsigned int size) {
  MTF_ASSERT_NOT_NULL(content, false);
  if (file_.sputn(content, size) != static_cast<std::streamsize>(size)) return false;
  length_ += size;
  return true;
}

bool Catalog_Stream::add_tape_blk(const Tape_Blk& blk) {
  seq_ = blk.media_sequence_number();
  return true;
}

bool Catalog_Stream::add_meta_stream(const Metadata_Stream& stream) {
  const char* data;
  unsigned int size;
  stream.get_hdr(data, size);
  if (!append(data, size)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to append meta stream header\n")), false);
  }
  stream.get_data(data, size);
  return append(data, size);
}

bool Catalog_Stream::add_sset_blk(const SSet_Blk& blk) {
  sset_fla_ = blk.hdr().format_logical_address();
  sset_off_ = (sset_fla_ - base_fla_) * format_logical_block_size_;
  time_zone_ = blk.time_zone();
  return true;
}

bool Catalog_Stream::add_vol_blk(const Vol_Blk& blk) {
  const auto need = Cat_Vol_Blk::buffer_need(blk.device_name().size());
  if (!block_.expand(static_cast<unsigned int>(need))) return false;
  Cat_Vol_Blk entry(block_.data(), block_.capacity());
  if (!entry.set(blk, seq_, sset_off_, sset_fla_, time_zone_, option_flags_)) return false;
  return add_cat_vol_blk(entry);
}

bool Catalog_Stream::add_dir_blk(const Dir_Blk& blk, unsigned long long space,
                                 const std::string& name) {
  if (!block_.expand(static_cast<unsigned int>(Cat_Dir_Blk::buffer_need(name.size())))) {
    return false;
  }
  Cat_Dir_Blk entry(block_.data(), block_.capacity());
  if (!entry.set(blk, seq_, sset_off_, sset_fla_, time_zone_, option_flags_, space, name)) {
    return false;
  }
  return add_cat_dir_blk(entry);
}

template <class Cat_Blk_Type, class Blk>
bool Catalog_Stream::add_file_like(const Blk& blk, unsigned long long space, unsigned long long ino,
                                   unsigned short flags, const std::string& name) {
  if (!block_.expand(static_cast<unsigned int>(Cat_Blk_Type::buffer_need(name.size())))) {
    return false;
  }
  Cat_Blk_Type entry(block_.data(), block_.capacity());
  const auto all_flags = static_cast<unsigned short>(option_flags_ | flags);
  if (!entry.set(blk, seq_, sset_off_, sset_fla_, time_zone_, all_flags, space, ino, name)) {
    return false;
  }
  return add_cat_file_like(entry);
}

bool Catalog_Stream::add_file_blk(const File_Blk& blk, unsigned long long space,
                                  unsigned long long ino, unsigned short flags,
                                  const std::string& name) {
  return add_file_like<Cat_File_Blk>(blk, space, ino, flags, name);
}

bool Catalog_Stream::add_slnk_blk(const SLnk_Blk& blk, unsigned long long space,
                                  unsigned long long ino, unsigned short flags,
                                  const std::string& name) {
  return add_file_like<Cat_SLnk_Blk>(blk, space, ino, flags, name);
}

bool Catalog_Stream::add_hlnk_blk(const HLnk_Blk& blk, unsigned long long space,
                                  unsigned long long ino, unsigned short flags,
                                  const std::string& name) {
  return add_file_like<Cat_HLnk_Blk>(blk, space, ino, flags, name);
}

bool Catalog_Stream::add_devb_blk(const Devb_Blk& blk, unsigned long long space,
                                  unsigned long long ino, unsigned short flags,
                                  const std::string& name) {
  return add_file_like<Cat_Devb_Blk>(blk, space, ino, flags, name);
}

bool Catalog_Stream::add_pdat_blk(const PDat_Blk& blk, const std::string& name) {
  return add_file_like<Cat_PDat_Blk>(blk, 0, 0, 0, name);
}

bool Catalog_Stream::add_cfil_blk(const CFil_Blk&) {
  return true;
}

bool Catalog_Stream::add_eset_blk(const ESet_Blk&) {
  return end();
}

bool Catalog_Stream::add_cat_vol_blk(const Cat_Vol_Blk& blk) {
  return add_entry(blk);
}

bool Catalog_Stream::add_cat_dir_blk(const Cat_Dir_Blk& blk) {
  return add_entry(blk);
}

bool Catalog_Stream::add_cat_file_like(Cat_Named_Blk& blk) {
  MTF_ASSERT_NOT_NULL(blk.data(), false);
  blk.hdr().checksum(blk.hdr().calc_checksum());
  return add_entry(blk);
}

bool Catalog_Stream::add_entry(const Cat_Named_Blk& blk) {
  MTF_ASSERT_NOT_NULL(blk.data(), false);
  const MTF_TAPE_ADDRESS* name = blk.name();
  if (name == nullptr || Tape_Address_Getter(name).size() == 0) return false;
  add_info_to_summary(blk.hdr().type(), blk.hdr().seq(), blk.hdr().space());
  return append(blk.data(), blk.hdr().length());
}

void Catalog_Stream::add_info_to_summary(unsigned int type, unsigned short seq,
                                         unsigned long long space) {
  if (type == block_volb) summary_.vol_count(summary_.vol_count() + 1);
  if (type == block_dirb) summary_.dir_count(summary_.dir_count() + 1);
  if (is_file_like(type)) {
    if (space < small_file_limit) {
      summary_.small_file_count(summary_.small_file_count() + 1);
    } else if (space > large_file_limit) {
      summary_.large_file_count(summary_.large_file_count() + 1);
    }
    summary_.file_count(summary_.file_count() + 1);
    if (seq == seq_) summary_.inc_file_count(summary_.inc_file_count() + 1);
  }
  if (type == block_hlnk) return;
  summary_.total_size(summary_.total_size() + space);
  if (seq == seq_) summary_.inc_size(summary_.inc_size() + space);
}

bool Catalog_Stream::end() {
  MTF_ASSERT_NOT_NULL(block_.data(), false);
  Cat_Blk last(block_.data(), Cat_Hdr::fixed_size, false);
  last.set_end();
  if (!append(block_.data(), Cat_Hdr::fixed_size)) return false;
  if (file_.seek(0, SEEK_SET) == -1) return false;
  summary_.checksum(summary_.calc_checksum());
  constexpr std::streamsize size = Cat_Summary::file_size;
  if (file_.sputn(summary_.data(), size) != size) return false;
  return file_.close() == 0;
}

long long Catalog_Stream::write(IWriter& writer) {
  file_.close();
  return copy_file(path_, writer);
}

}  // namespace MTF
