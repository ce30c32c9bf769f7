// The classes of catalog blocks.
//
// Each has two set() operations: one from a block that went to the media, which the catalog uses,
// and one from what a walk knows, which the source tasks use. Both complete the header's checksum
// and return false where the data has no room for the name.
#pragma once

#include "mtf/catalog/cat_blk.h"
#include "mtf/common/dir_blk.h"
#include "mtf/common/file_blk.h"
#include "mtf/common/pdat_blk.h"
#include "mtf/common/vol_blk.h"

namespace MTF {

// Where the data set that holds a block stands on its media.
struct Cat_Place {
  unsigned short seq;
  unsigned long long sset_off;
  unsigned long long sset_fla;
  signed char time_zone;
};

// What all blocks with a name share.
class Cat_Named_Blk : public Cat_Blk {
 public:
  const MTF_TAPE_ADDRESS* name() const { return name_address(*this); }

 protected:
  using Cat_Blk::Cat_Blk;

  // The header's fields that come from a block on the media.
  void set_from(const DBLK& blk, const Cat_Place& place, unsigned short flags,
                unsigned long long space);
  // The same for a block that is queued; false where there is no room for the name.
  bool set_queued_name(unsigned int address_offset, unsigned short seq, const std::string& name);
  void seal() { hdr().checksum(hdr().calc_checksum()); }
};

class Cat_Vol_Blk : public Cat_Named_Blk {
 public:
  using Layout = MTF_CAT_VOLB_BLK;

  Cat_Vol_Blk() = default;
  // Over `data`, which stays the caller's and has room for the fixed part.
  Cat_Vol_Blk(char* data, unsigned int size);

  // Bytes of a block with a name of `name_size` bytes.
  static unsigned long long buffer_need(unsigned long long name_size) {
    return name_size + Layout::fixed_size;
  }

  // The name is the block's device name.
  bool set(const Vol_Blk& blk, unsigned short seq, unsigned long long sset_off,
           unsigned long long sset_fla, signed char time_zone, unsigned short flags);
  bool set(unsigned short seq, const std::string& name);
};

// What a directory and all file-like blocks share: a date, and then the name.
class Cat_Dated_Blk : public Cat_Named_Blk {
 public:
  using Layout = MTF_CAT_DIRB_BLK;

  static unsigned long long buffer_need(unsigned long long name_size) {
    return name_size + Layout::fixed_size;
  }

  // The last modification, in seconds since 1970.
  MTF_DATE_FIELD(time, Layout::date)

 protected:
  using Cat_Named_Blk::Cat_Named_Blk;

  bool set_dated(unsigned int type, const DBLK& blk, long long date, const Cat_Place& place,
                 unsigned short flags, unsigned long long space, unsigned long long ino,
                 const std::string& name);
  bool set_queued(unsigned int type, unsigned short seq, const std::string& name, long long time,
                  unsigned long long size, unsigned short flags, unsigned long long ino);

 private:
  char* bytes() const { return data(); }
};

class Cat_Dir_Blk : public Cat_Dated_Blk {
 public:
  Cat_Dir_Blk() = default;
  Cat_Dir_Blk(char* data, unsigned int size);

  bool set(const Dir_Blk& blk, unsigned short seq, unsigned long long sset_off,
           unsigned long long sset_fla, signed char time_zone, unsigned short flags,
           unsigned long long space, const std::string& name);
  bool set(unsigned short seq, const std::string& name);
};

// FILE, SLNK, HLNK, DEVB and PDAT blocks. `Blk` is the media block, `Layout_T` the layout and
// `Type` the block type.
template <class Blk, class Layout_T, unsigned int Type>
class Cat_File_Blk_T : public Cat_Dated_Blk {
 public:
  static constexpr unsigned int block_type = Type;

  Cat_File_Blk_T() = default;
  Cat_File_Blk_T(char* data, unsigned int size) : Cat_Dated_Blk(data, size, false) {
    stamp(Layout_T::fixed_size, Type);
  }

  bool set(const Blk& blk, unsigned short seq, unsigned long long sset_off,
           unsigned long long sset_fla, signed char time_zone, unsigned short flags,
           unsigned long long space, unsigned long long ino, const std::string& name) {
    return set_dated(Type, blk, blk.last_modification_date(), {seq, sset_off, sset_fla, time_zone},
                     flags, space, ino, name);
  }

  bool set(unsigned short seq, const std::string& name, long long time, unsigned long long size,
           unsigned short flags, unsigned long long ino) {
    return set_queued(Type, seq, name, time, size, flags, ino);
  }
};

using Cat_File_Blk = Cat_File_Blk_T<File_Blk, MTF_CAT_DIRB_BLK, 1162627398>;
using Cat_SLnk_Blk = Cat_File_Blk_T<SLnk_Blk, MTF_CAT_DIRB_BLK, 1397509707>;
using Cat_HLnk_Blk = Cat_File_Blk_T<HLnk_Blk, MTF_CAT_DIRB_BLK, 1263422536>;
using Cat_Devb_Blk = Cat_File_Blk_T<Devb_Blk, MTF_CAT_DIRB_BLK, 1112950084>;
using Cat_PDat_Blk = Cat_File_Blk_T<PDat_Blk, MTF_CAT_DIRB_BLK, 1413563472>;

// The leaf name of a file-like block. False, with a line, for a block without a name, and for a
// name of a string type that isn't known.
bool leaf_name(const Cat_Blk& block, std::string& out);

// The volume or directory name of a block with `separator` in place of the NUL bytes that it
// travels with. False for a block without a name.
bool get_device_from_vol(const Cat_Vol_Blk& block, char separator, std::string& out);
bool get_name_from_dir(const Cat_Dir_Blk& block, char separator, std::string& out);

}  // namespace MTF
