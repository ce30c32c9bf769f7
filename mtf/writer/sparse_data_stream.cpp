#include "mtf/writer/sparse_data_stream.h"

#include <ace/Log_Msg.h>

namespace MTF {

Sparse_Data_Stream::Sparse_Data_Stream(Ref_Ptr<Event_Handler> evt_handler)
    : evt_handler_(evt_handler) {}

void Sparse_Data_Stream::reset_stream(unsigned long long offset, unsigned long long length,
                                      unsigned short method, int level) {
  NT_Stream_Base::reset_stream(length + Sparse_Header::fixed_size, method, true, level);
  hdr().id(stream_spar);
  sparse_header_.offset(offset);
  if (running_offset_ > offset) {
    ACE_ERROR((LM_WARNING,
               ACE_TEXT("Found overlapped sparse range, last_offset=%Q, new offset=%Q, "
                        "length=%Q\n"),
               running_offset_, offset, length));
  } else if (evt_handler_.get() != nullptr) {
    evt_handler_->add_size(channel_, offset - running_offset_);
  }
  running_offset_ = offset;
}

bool Sparse_Data_Stream::write_hdr(IWriter& writer) {
  return NT_Stream_Base::write_hdr(writer) && NT_Stream_Base::write_data(sparse_header_, writer);
}

bool Sparse_Data_Stream::write_data(const Buffer& buffer, IWriter& writer) {
  if (!NT_Stream_Base::write_data(buffer, writer)) return false;
  if (evt_handler_.get() != nullptr) {
    evt_handler_->add_size(channel_, buffer.size());
    if (evt_handler_->is_canceling()) return false;
  }
  running_offset_ += buffer.size();
  return true;
}

}  // namespace MTF
