#include "mtf/writer/nt_stream_factory.h"

#include <ace/Log_Msg.h>

namespace MTF {
namespace {

// In front of an alternate stream's name stands its size.
constexpr unsigned int stream_name_size_width = 4;

template <class Stream>
NT_Stream_Base* ready(Stream& stream, unsigned long long length) {
  stream.reset_stream(length);
  return &stream;
}

}  // namespace

NT_Stream_Factory::NT_Stream_Factory(Ref_Ptr<Event_Handler> evt_handler)
    : standard_(evt_handler), sparse_(evt_handler) {}

void NT_Stream_Factory::init(const Ref_Ptr<Buffer>& buffer, const Backup_Context& ctx,
                             int compression_threads) {
  NT_Stream_Base* const streams[] = {&standard_, &sparse_, &adat_, &ntea_,
                                     &ntpr_,     &ntrp_,   &ntoi_, &nacl_};
  for (NT_Stream_Base* stream : streams) stream->set_buffer(buffer);
  standard_.set_channel(ctx.channel);
  sparse_.set_channel(ctx.channel);
  standard_.set_compression_threads(compression_threads);
  sparse_.set_compression_threads(compression_threads);
  standard_.set_ready_files(ctx.ready_files);
}

NT_Stream_Base* NT_Stream_Factory::get_stream(const WIN32_STREAM_ID& id, unsigned long long offset,
                                              unsigned short method, int level) {
  NT_Stream_Base* const stream = choose(id, offset, method, level);
  if (stream == nullptr) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Unknown WIN32 stream id: 0x%X\n"), id.dwStreamId));
    return nullptr;
  }
  Stream_Hdr header = stream->hdr();
  unsigned short attributes = header.file_system_attributes();
  if ((id.dwStreamAttributes & STREAM_MODIFIED_WHEN_READ) != 0) attributes |= fs_modified_when_read;
  if ((id.dwStreamAttributes & STREAM_CONTAINS_SECURITY) != 0) attributes |= fs_contains_security;
  header.file_system_attributes(attributes);
  return stream;
}

NT_Stream_Base* NT_Stream_Factory::choose(const WIN32_STREAM_ID& id, unsigned long long offset,
                                          unsigned short method, int level) {
  switch (id.dwStreamId) {
    case BACKUP_DATA:
      sparse_.reset_offset();
      standard_.reset_stream(id.Size, method, level);
      return &standard_;
    case BACKUP_EA_DATA:
      return ready(ntea_, id.Size);
    case BACKUP_SECURITY_DATA:
      return ready(nacl_, id.Size);
    case BACKUP_ALTERNATE_DATA:
      sparse_.reset_offset();
      return ready(adat_, id.Size + id.dwStreamNameSize + stream_name_size_width);
    case BACKUP_PROPERTY_DATA:
      return ready(ntpr_, id.Size);
    case BACKUP_OBJECT_ID:
      return ready(ntoi_, id.Size);
    case BACKUP_REPARSE_DATA:
      return ready(ntrp_, id.Size);
    case BACKUP_SPARSE_BLOCK:
      sparse_.reset_stream(offset, id.Size - Sparse_Header::fixed_size, method, level);
      return &sparse_;
    default:
      return nullptr;
  }
}

}  // namespace MTF
