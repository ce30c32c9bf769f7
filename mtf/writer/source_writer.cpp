#include "mtf/writer/source_writer.h"

#include <ace/Log_Msg.h>

#include <cstdio>

#include "oxbase/path.h"
#include "services/assertion.h"
#include "services/file_path.h"

namespace MTF {
namespace {

constexpr unsigned long long list_buffer_size = 0x20000;

constexpr unsigned int file_type_mask = 0xF000;
constexpr unsigned int directory_file_type = 0x4000;

}  // namespace

Source_Writer::Source_Writer(unsigned int seq, char separator)
    : seq_(seq), separator_(separator), out_(list_buffer_size), buf_(8) {}

Source_Writer::~Source_Writer() = default;

bool Source_Writer::open(const std::string& path) {
  path_ = path;
  if (out_.open(path_.c_str(), MTF_FS::write_flags, MTF_FS::share_all) == -1) return false;
  return out_.sputn(summary_.data(), Cat_Summary::file_size) ==
         static_cast<std::streamsize>(Cat_Summary::file_size);
}

bool Source_Writer::write(const std::string& path, _stat64* st) {
  MTF_ASSERT_NOT_NULL(st, false);
  if (MTF_FS::is_root_path(path)) return write_vol(path);
  if ((st->st_mode & file_type_mask) == directory_file_type) return write_dir(path);
  return write_file(path, st);
}

bool Source_Writer::write(const Cat_Blk& block) {
  MTF_ASSERT_NOT_NULL(block.data(), false);
  add_info_to_summary(block);
  return append(block.data(), block.hdr().length());
}

bool Source_Writer::write_vol(const std::string& path) {
  MTF_ASSERT_TRUE(buf_.expand(Cat_Vol_Blk::buffer_need(path.size())), false);
  return write_named<Cat_Vol_Blk>(path);
}

bool Source_Writer::write_dir(const std::string& path) {
  MTF_ASSERT_TRUE(buf_.expand(Cat_Dir_Blk::buffer_need(path.size())), false);
  return write_named<Cat_Dir_Blk>(path);
}

bool Source_Writer::write_file(const std::string& path, _stat64* st) {
  MTF_ASSERT_NOT_NULL(st, false);
  switch (st->st_mode & file_type_mask) {
    case 0x2000:
    case 0x3000:
      return write_file_like<Cat_Devb_Blk>(path, *st);
    case 0x8000:
      return write_file_like<Cat_File_Blk>(path, *st);
    case 0xA000:
      return write_file_like<Cat_SLnk_Blk>(path, *st);
    default:
      ACE_ERROR_RETURN(
          (LM_WARNING, ACE_TEXT("Failed to write_file, invalid mode 0x%X\n"), st->st_mode), false);
  }
}

template <class Blk>
bool Source_Writer::write_named(const std::string& path) {
  Blk block(buf_.data(), buf_.capacity());
  return block.set(static_cast<unsigned short>(seq_), path) ? write(block) : too_long(path);
}

template <class Cat_Blk_Type>
bool Source_Writer::write_file_like(const std::string& path, const _stat64& st) {
  MTF_ASSERT_TRUE(buf_.expand(Cat_Blk_Type::buffer_need(path.size())), false);
  Cat_Blk_Type block(buf_.data(), buf_.capacity());
  const bool fits =
      block.set(static_cast<unsigned short>(seq_), oxbase::basename(path, separator_), st.st_mtime,
                static_cast<unsigned long long>(st.st_size), 0, st.st_ino);
  return fits ? write(block) : too_long(path);
}

bool Source_Writer::too_long(const std::string& path) {
  ACE_ERROR_RETURN(
      (LM_ERROR, ACE_TEXT("Name is too long for a source list, path=%C\n"), path.c_str()), false);
}

void Source_Writer::add_info_to_summary(const Cat_Blk& block) {
  MTF_ASSERT_NOT_NULL(block.data(), void());
  const unsigned long long size = block.hdr().size();
  const unsigned int type = block.hdr().type();
  if (type == block_volb) summary_.vol_count(summary_.vol_count() + 1);
  if (type == block_dirb) summary_.dir_count(summary_.dir_count() + 1);
  if (is_file_like(type)) add_file(size);
  summary_.total_size(summary_.total_size() + size);
  summary_.inc_size(summary_.inc_size() + size);
}

void Source_Writer::add_file(unsigned long long size) {
  summary_.file_count(summary_.file_count() + 1);
  summary_.inc_file_count(summary_.inc_file_count() + 1);
  if (size < small_file_limit) summary_.small_file_count(summary_.small_file_count() + 1);
  if (size > large_file_limit) summary_.large_file_count(summary_.large_file_count() + 1);
}

bool Source_Writer::append(const char* buf, unsigned int len) {
  MTF_ASSERT_NOT_NULL(buf, false);
  if (out_.sputn(buf, len) == static_cast<std::streamsize>(len)) return true;
  ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to put %u bytes to catalog\n"), len), false);
}

bool Source_Writer::close() {
  Cat_Blk end;
  if (!end.alloc_buffer(Cat_Hdr::fixed_size)) return false;
  end.set_end();
  if (!append(end.data(), end.hdr().length())) return false;
  if (out_.seek(0, SEEK_SET) == -1) return false;
  summary_.checksum(summary_.calc_checksum());
  if (!append(summary_.data(), Cat_Summary::file_size)) return false;
  return out_.close() == 0;
}

}  // namespace MTF
