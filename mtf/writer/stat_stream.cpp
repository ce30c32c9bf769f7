#include "mtf/writer/stat_stream.h"

#include <ace/Log_Msg.h>

#include "mtf/common/stat_record.h"
#include "mtf/writer/dblk_writer.h"

namespace MTF {
namespace {

// Ids are signed numbers that travel 64 bits wide.
unsigned long long extend(int id) {
  return static_cast<unsigned long long>(static_cast<long long>(id));
}

// Appends the names to the record. Returns the length of the whole.
unsigned long long add_names(Stat_Extent_Setter& record, const std::string& owner,
                             const std::string& group) {
  unsigned long long length = Stat_Extent_Setter::fixed_size;
  if (!owner.empty() && record.owner(owner)) length += owner.size();
  if (!group.empty() && record.group(group)) length += group.size();
  return length;
}

}  // namespace

Unix_Stat_Stream::Unix_Stat_Stream(const Ref_Ptr<Buffer>& buffer) : Stream(buffer) {
  hdr().id(stream_stat);
}

bool Unix_Stat_Stream::set_stat(const _stat64& stat) {
  if (!buffer()->expand(Stat_Info_Setter::fixed_size)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed expand buffer in Unix_Stat_Stream::set_stat\n")),
                     false);
  }
  Stat_Info_Setter record(*buffer());
  record.gid(extend(stat.st_gid));
  record.uid(extend(stat.st_uid));
  record.mode(stat.st_mode);
  hdr().length(Stat_Info_Setter::fixed_size);
  return true;
}

Unix_Stat_Extent_Stream::Unix_Stat_Extent_Stream(const Ref_Ptr<Buffer>& buffer,
                                                 ID_Mapper* id_mapper)
    : Stream(buffer), id_mapper_(id_mapper) {
  hdr().id(stream_ctex);
}

bool Unix_Stat_Extent_Stream::set_stat(const _stat64& stat) {
  Stat_Extent_Setter record(*buffer());
  if (!record.ready()) {
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("Failed expand buffer in Unix_Stat_Extent_Stream::set_stat\n")), false);
  }
  record.gid(extend(stat.st_gid));
  record.uid(extend(stat.st_uid));
  record.mode(stat.st_mode);
  record.dev(stat.st_dev);
  record.ino(stat.st_ino);
  record.nlink(stat.st_nlink);
  record.rdev(stat.st_rdev);
  record.size(static_cast<unsigned long long>(stat.st_size));
  record.reserved(0);
  record.blocks(0);
  hdr().length(add_names(record, id_mapper_->user(static_cast<unsigned int>(stat.st_uid)),
                         id_mapper_->group(static_cast<unsigned int>(stat.st_gid))));
  return true;
}

Callback_Stat_Stream::Callback_Stat_Stream(const Ref_Ptr<Buffer>& buffer) : Stream(buffer) {
  hdr().id(stream_ctex);
}

bool Callback_Stat_Stream::set_stat(const Callback_Stat& stat) {
  Stat_Extent_Setter record(*buffer());
  if (!record.ready()) {
    ACE_ERROR_RETURN(
        (LM_ERROR, ACE_TEXT("Failed expand buffer in Callback_Stat_Stream::set_stat\n")), false);
  }
  record.gid(stat.gid);
  record.uid(stat.uid);
  record.mode(stat.mode);
  record.dev(stat.dev);
  record.ino(stat.ino);
  record.nlink(stat.nlink);
  record.rdev(stat.rdev);
  record.size(stat.size);
  record.reserved(stat.reserved);
  record.blocks(stat.blocks);
  hdr().length(add_names(record, stat.owner, stat.group));
  return true;
}

bool write_unix_stat(Backup_Context& ctx, const Ref_Ptr<Buffer>& buf, const _stat64& stat,
                     IWriter& writer) {
  Unix_Stat_Extent_Stream stream(buf, &ctx.id_mapper);
  return stream.set_stat(stat) && write_small_stream(ctx, stream, writer);
}

bool write_callback_stat(Backup_Context& ctx, const Ref_Ptr<Buffer>& buf, const Callback_Stat& stat,
                         IWriter& writer) {
  Callback_Stat_Stream stream(buf);
  return stream.set_stat(stat) && write_small_stream(ctx, stream, writer);
}

}  // namespace MTF
