#include "mtf/writer/set_file_blk_win.h"

#include "mtf/common/round_up.h"
#include "mtf/writer/wide_path.h"
#include "services/file_path.h"
#include "services/file_space.h"

namespace MTF {
namespace {

void fill(File_Shaped_Blk& blk, const WIN32_FILE_ATTRIBUTE_DATA& data) {
  blk.hdr().displayable_size(static_cast<unsigned long long>(data.nFileSizeHigh) << 32 |
                             data.nFileSizeLow);
  set_dates(blk, data);
  blk.file_attributes(blk.file_attributes() | block_attributes(data.dwFileAttributes));
}

bool is_sparse(const WIN32_FILE_ATTRIBUTE_DATA& data) {
  return (data.dwFileAttributes & FILE_ATTRIBUTE_SPARSE_FILE) != 0;
}

// An `allocated` of 0 or less tells nothing.
unsigned long long space_of(long long allocated, unsigned long long size,
                            unsigned int fs_block_size) {
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
  fill(blk, data);
  const long long allocated = is_sparse(data) ? MTF_FS::get_file_space(wide_path.c_str()) : -1;
  file_space = space_of(allocated, blk.hdr().displayable_size(), ctx->fs_block_size);
  return 1;
}

void set_file_blk_win(File_Blk& blk, const platform::File_Facts& facts,
                      unsigned long long& file_space, const Backup_Context& ctx) {
  fill(blk, facts.data);
  file_space = space_of(is_sparse(facts.data) ? facts.allocated : -1, blk.hdr().displayable_size(),
                        ctx.fs_block_size);
}

}  // namespace MTF
