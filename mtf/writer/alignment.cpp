#include <ace/Log_Msg.h>

#include "mtf/common/end_blks.h"
#include "mtf/common/pad_stream.h"
#include "mtf/common/round_up.h"
#include "mtf/writer/dblk_writer.h"
#include "services/assertion.h"

namespace MTF {
namespace {

// Bytes from the position up to the next multiple of `a`.
unsigned int gap(const Backup_Context& ctx, unsigned long long a) {
  return static_cast<unsigned int>(round_up(ctx.length, a) - ctx.length);
}

}  // namespace

bool write_to_stream_align(Backup_Context& ctx, IWriter& writer) {
  static constexpr char zeros[stream_alignment] = {};
  const unsigned int n = gap(ctx, stream_alignment);
  if (n == 0) return true;
  if (writer.write(zeros, n) != n) {
    ctx.write_failed(writer);
    ACE_ERROR_RETURN((LM_WARNING, ACE_TEXT("Failed to write stream align\n")), false);
  }
  ctx.add_length(n);
  return true;
}

bool write_small_stream(Backup_Context& ctx, Stream& stream, IWriter& writer) {
  if (!write_to_stream_align(ctx, writer)) return false;
  const unsigned long long written = stream.write(writer);
  if (written == IWriter::failed) return false;
  ctx.add_length(written);
  return true;
}

bool write_spad_stream(const Backup_Option& opt, Backup_Context& ctx, const Ref_Ptr<Buffer>& buf,
                       IWriter& writer, bool flb) {
  MTF_ASSERT_NOT_NULL(buf.get(), false);
  if (!write_to_stream_align(ctx, writer)) return ctx.write_failed(writer);
  const unsigned int a = flb ? opt.format_logical_block_size : opt.physical_block_size;
  unsigned int n = gap(ctx, a);
  if (n < Stream_Hdr::fixed_size) n += a;
  Pad_Stream pad(buf);
  if (!pad.length(n - Stream_Hdr::fixed_size)) return false;
  if (pad.write(writer) == IWriter::failed) return ctx.write_failed(writer);
  ctx.add_length(n);
  return true;
}

bool write_pba_align(const Backup_Option& opt, Backup_Context& ctx, IWriter& writer) {
  const unsigned int n = gap(ctx, opt.physical_block_size);
  if (n == 0) return true;
  Buffer zeros(8);
  if (!zeros.expand(n)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to expand buffer\n")), false);
  }
  if (writer.write(zeros.data(), n) != n) {
    ACE_ERROR_RETURN((LM_WARNING, ACE_TEXT("Failed to write pba align\n")), false);
  }
  ctx.add_length(n);
  return true;
}

bool write_cfil_blk(const Backup_Option& opt, Backup_Context& ctx, const Ref_Ptr<Buffer>& buf,
                    unsigned int attributes, unsigned long long offset,
                    unsigned short stream_number, IWriter& writer) {
  MTF_ASSERT_NOT_NULL(buf.get(), false);
  if (!write_spad_stream(opt, ctx, buf, writer, true)) return false;
  CFil_Blk blk(*buf, true);
  blk.hdr().format_logical_address(ctx.fla);
  blk.hdr().control_block_id(++ctx.control_block_id);
  blk.cfil_attributes(attributes);
  blk.stream_offset(offset);
  blk.stream_number(stream_number);
  const unsigned long long written = blk.write(writer);
  if (written == IWriter::failed) return ctx.write_failed(writer);
  ctx.add_length(written);
  return true;
}

}  // namespace MTF
