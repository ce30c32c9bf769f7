// The stream for each kind of backup record.
#pragma once

#include "mtf/writer/nt_stream.h"
#include "mtf/writer/sparse_data_stream.h"
#include "platform/backup_read.h"

namespace MTF {

// What a file has beside its content. It isn't compressed and counts as no progress.
template <unsigned int stream_id, unsigned short attributes = 0>
class Property_Stream : public NT_Stream_Base {
 public:
  void reset_stream(unsigned long long length) {
    NT_Stream_Base::reset_stream(length, 0, false, 1);
    hdr().id(stream_id);
    hdr().file_system_attributes(attributes);
  }
};

using ADAT_Stream = Property_Stream<stream_adat>;
using NTEA_Stream = Property_Stream<stream_ntea>;
using NTPR_Stream = Property_Stream<stream_ntpr>;
using NTRP_Stream = Property_Stream<stream_ntrp>;
using LINK_Stream = Property_Stream<stream_link>;
using NTOI_Stream = Property_Stream<stream_ntoi>;
using NACL_Stream = Property_Stream<stream_nacl, fs_contains_security>;

// Holds one object of each stream class, reused for each record of its kind.
class NT_Stream_Factory {
 public:
  // `evt_handler` may be null.
  explicit NT_Stream_Factory(Ref_Ptr<Event_Handler> evt_handler);

  // Gives all streams the buffer that they share, and those of content, which count progress, their
  // channel, the threads that compress them and the files that are compressed already.
  void init(const Ref_Ptr<Buffer>& buffer, const Backup_Context& ctx, int compression_threads);

  // The stream for the record `id`, ready for its header; owned here. `offset` is that of a sparse
  // block, whose Size must be at least the 8 bytes that it takes. Null, with a line at LM_ERROR,
  // for a record of unknown kind.
  NT_Stream_Base* get_stream(const WIN32_STREAM_ID& id, unsigned long long offset,
                             unsigned short method, int level);

 private:
  NT_Stream_Base* choose(const WIN32_STREAM_ID& id, unsigned long long offset,
                         unsigned short method, int level);

  Standard_Data_Stream standard_;
  Sparse_Data_Stream sparse_;
  ADAT_Stream adat_;
  NTEA_Stream ntea_;
  NTPR_Stream ntpr_;
  NTRP_Stream ntrp_;
  NTOI_Stream ntoi_;
  NACL_Stream nacl_;
};

}  // namespace MTF
