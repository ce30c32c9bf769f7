#include "mtf/writer/set_file_blk_win.h"

#include "mtf/common/round_up.h"
#include "mtf/writer/wide_path.h"
#include "services/file_path.h"
#include "services/file_space.h"

namespace MTF {
namespace {

unsigned long long space_on_volume(const std::wstring& wide_path, unsigned int file_attributes,
                                   unsigned long long size, unsigned int fs_block_size) {
  const bool sparse = (file_attributes & FILE_ATTRIBUTE_SPARSE_FILE) != 0;
  const long long allocated = sparse ? MTF_FS::get_file_space(wide_path.c_str()) : -1;
  const unsigned long long space =
      allocated > 0 ? static_cast<unsigned long long>(allocated) : size;
  return round_up<unsigned long long>(space, fs_block_size);
}

}  // namespace

int set_file_blk_win(File_Shaped_Blk& blk, std::wstring& wide_path, unsigned long long& file_space,
                     int& error, Backup_Context* ctx, const std::string& name) {
  oxbase::Path_T<char> path('\\', false);
  if (!MTF_FS::replace_volume(ctx->cur_vol, ctx->cur_dir, name, ctx->shadow_vol, path)) return 0;
  to_wide_path(path.str(), wide_path);
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!query_attributes(wide_path, data, error)) return 0;
  const unsigned long long size =
      static_cast<unsigned long long>(data.nFileSizeHigh) << 32 | data.nFileSizeLow;
  blk.hdr().displayable_size(size);
  file_space = space_on_volume(wide_path, data.dwFileAttributes, size, ctx->fs_block_size);
  set_dates(blk, data);
  blk.file_attributes(blk.file_attributes() | block_attributes(data.dwFileAttributes));
  return 1;
}

}  // namespace MTF
