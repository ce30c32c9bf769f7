#include "mtf/writer/file_shaped.h"

#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_time.h>

#include "mtf/common/fnam_stream.h"
#include "mtf/writer/dblk_writer.h"
#include "services/json_spirit.h"

namespace MTF {

void set_entry_path(const Backup_Context& ctx, const std::string& name,
                    oxbase::Path_T<char>& path) {
  path.clear();
  path /= ctx.cur_vol;
  path /= ctx.cur_dir;
  path /= name;
}

void set_file_shape(const Backup_Option& opt, Backup_Context& ctx, const std::string& name,
                    File_Shaped_Blk& blk) {
  blk.hdr().format_logical_address(ctx.fla);
  blk.hdr().control_block_id(++ctx.control_block_id);
  blk.backup_date(ACE_OS::time());
  blk.directory_id(ctx.dir_id);
  blk.file_id(++ctx.file_id);
  unsigned int attributes = 0;
  if (!blk.file_name(name)) attributes |= attr_name_in_stream;
  if (opt.compression_method != 0) attributes |= attr_compression;
  blk.hdr().attributes(attributes);
}

bool write_shaped_blk(Backup_Context& ctx, File_Shaped_Blk& blk, IWriter& writer) {
  const unsigned long long written = blk.write(writer);
  if (written == IWriter::failed) return false;
  ctx.add_length(written);
  return true;
}

bool write_file_name(Backup_Context& ctx, const Ref_Ptr<Buffer>& buf, const File_Shaped_Blk& blk,
                     const std::string& name, unsigned short& streams, IWriter& writer) {
  if ((blk.hdr().attributes() & attr_name_in_stream) == 0) return true;
  File_Name_Stream stream(buf);
  if (!stream.name(name) || !write_small_stream(ctx, stream, writer)) return false;
  ++streams;
  return true;
}

void report_skipped_file(Event_Handler* handler, const std::string& path, const char* message) {
  const int error = ACE_OS::last_error();
  if (handler == nullptr) return;
  ++handler->skipped_files;
  handler->handle_event(
      event_skipped, json_spirit::Document{
                         {"type", "file"}, {"name", path}, {"errno", error}, {"message", message}});
}

}  // namespace MTF
