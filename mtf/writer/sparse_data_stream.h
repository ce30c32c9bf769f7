// One stretch of a file with holes (SPAR).
#pragma once

#include "mtf/common/sparse_header.h"
#include "mtf/writer/nt_stream.h"

namespace MTF {

// Data and the holes in front of it count as progress; a cancel shows as a failed write. The file
// offset reached lives across the stretches of one data stream.
class Sparse_Data_Stream : public NT_Stream_Base {
 public:
  // `evt_handler` may be null.
  explicit Sparse_Data_Stream(Ref_Ptr<Event_Handler> evt_handler);

  // Readies the object for `length` bytes at `offset` of the file. A stretch that starts before the
  // offset reached gets a line at LM_WARNING and is written all the same.
  void reset_stream(unsigned long long offset, unsigned long long length, unsigned short method,
                    int level);
  void set_channel(unsigned long long channel) { channel_ = channel; }

  // Begins a new data stream: the offset reached is 0.
  void reset_offset() { running_offset_ = 0; }

  bool write_hdr(IWriter& writer) override;
  bool write_data(const Buffer& buffer, IWriter& writer) override;

 private:
  Sparse_Header sparse_header_;
  Ref_Ptr<Event_Handler> evt_handler_;
  unsigned long long channel_ = 0;
  unsigned long long running_offset_ = 0;
};

}  // namespace MTF
