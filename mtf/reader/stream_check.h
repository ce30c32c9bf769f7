// The check of how the streams of one block fit together.
#pragma once

#include "mtf/reader/media_walker.h"

namespace MTF {

class Stream_Check {
 public:
  explicit Stream_Check(const Fault_At& on_fault) : on_fault_(on_fault) {}

  // Starts with the streams of a block.
  void start(unsigned int block_type, bool name_in_stream);

  void take(const Media_Stream& stream);

  // Ends the streams of the block that stands at `position`.
  void end(unsigned long long position);

  // Streams so far that a CFIL block counts.
  unsigned int count() const { return count_; }
  // Length of the last of them.
  unsigned long long last_length() const { return last_length_; }

  // The name in a PNAM or FNAM stream; empty if there is none.
  const std::string& name() const { return name_; }

  // Of a symbolic link what it leads to, of a further name of a file the path of the first one.
  const std::string& target() const { return target_; }

 private:
  bool check_place(const Media_Stream& stream);
  void check_content(const Media_Stream& stream);
  void check_name(const Media_Stream& stream);
  void check_sparse(const Media_Stream& stream);
  void check_stat(const Media_Stream& stream);
  void check_description(const Media_Stream& stream);
  void check_link(const Media_Stream& stream);

  const Fault_At& on_fault_;
  unsigned int block_type_ = 0;
  bool name_wanted_ = false;
  bool chunk_open_ = false;  // a stream of unknown length hasn't had its last chunk
  bool content_seen_ = false;
  bool sparse_allowed_ = false;
  unsigned int count_ = 0;
  unsigned long long last_length_ = 0;
  std::string name_;
  std::string target_;
  unsigned int missing_ = 0;  // the stream that tells what the block is, while it is still to come
  unsigned int last_id_ = 0;
};

// The ownership record of a CTEX stream.
struct Stat_Extent {
  unsigned long long gid;
  unsigned long long uid;
  unsigned long long mode;
  unsigned long long rdev;
};

// Reads the data of a CTEX stream; false if its lengths don't fit together.
bool read_stat_extent(std::string_view data, Stat_Extent& out);

}  // namespace MTF
