// The check of a media: what its blocks say of each other.
#pragma once

#include <string>

#include "mtf/reader/filemark_check.h"
#include "mtf/reader/media_catalog_place.h"
#include "mtf/reader/media_listener.h"
#include "mtf/reader/media_order.h"
#include "mtf/reader/media_walker.h"
#include "mtf/reader/stream_check.h"

namespace MTF {

struct Media_Counts {
  unsigned long long blocks = 0;
  unsigned long long streams = 0;
  unsigned long long corrupt_files = 0;
  unsigned long long volumes = 0;  // these three as the set map counts them
  unsigned long long directories = 0;
  unsigned long long files = 0;
  unsigned long long file_size = 0;
  // The sum of mixed() over the addresses of what these three count: two lists with one sum hold
  // the same blocks.
  unsigned long long address_sum = 0;
};

// Spreads an address over 64 bits.
constexpr unsigned long long mixed(unsigned long long address) {
  const unsigned long long spread = (address + 1) * 0x9E3779B97F4A7C15;
  return (spread ^ spread >> 32) * 0xD6E8FEB86659FD93;
}

// Walks and checks one media. Used once.
class Media_Check : public IMedia_Visitor {
 public:
  // `seq` is the number of the media's job. `listener` may be null. Keeps all references.
  Media_Check(Piece_Window& window, unsigned int seq, IMedia_Listener* listener,
              const Fault_At& on_fault);

  void run();

  const Media_Counts& counts() const { return counts_; }
  const Media_Geometry& geometry() const { return walker_.geometry(); }
  const Media_Catalog_Place& catalog() const { return catalog_; }
  // True if a stretch of the media was passed over.
  bool lost() const { return lost_; }

  void on_block(const Media_Block& block) override;
  void on_stream(const Media_Stream& stream) override;
  void on_gap() override;

 private:
  void check_tape(const Media_Block& block);
  void check_sset(const Media_Block& block);
  void check_ids(const Media_Block& block);
  void check_directory(const Media_Block& block);
  void check_file(const Media_Block& block);
  void check_name(const Media_Block& block);
  void check_cfil(const Media_Block& block);
  void check_eset(const Media_Block& block);
  void check_eset_catalog(const Media_Block& block);
  void check_eset_copy(const Media_Block& block);
  void check_eotm(const Media_Block& block);
  void check(bool right, unsigned long long position, const char* text);
  void hold_object(const Media_Block& block);
  void give_object(bool corrupt);
  void count_object();

  Piece_Window& window_;
  unsigned int seq_;
  IMedia_Listener* listener_;
  const Fault_At& on_fault_;
  Media_Walker walker_;
  Media_Order order_;
  Filemark_Check filemarks_;
  Stream_Check streams_;
  Media_Counts counts_;
  Media_Catalog_Place catalog_;
  bool lost_ = false;
  bool gap_ = false;  // the next block comes behind damage
  unsigned int block_type_ = 0;
  unsigned long long block_position_ = 0;

  // The set.
  bool set_seen_ = false;
  std::string set_date_;
  unsigned short set_number_ = 0;
  bool set_compressed_ = false;
  unsigned int last_control_block_id_ = 0;
  unsigned int last_directory_id_ = 0;
  bool directory_known_ = false;  // the last id is that of the directory which the media is in
  unsigned int last_file_id_ = 0;
  unsigned long long eset_position_ = 0;
  unsigned int eset_copies_ = 0;
  std::string first_eset_;

  // The object whose streams are being walked: what follows tells whether it is corrupt.
  bool holding_ = false;
  Media_Object object_;
  std::string object_name_;
  std::string object_date_;
};

}  // namespace MTF
