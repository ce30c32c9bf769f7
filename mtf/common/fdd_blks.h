// The entries of the file and directory detail (MTF_FDD_HDR and what follows it): one for each
// block of a media.
#pragma once

#include <string>
#include <string_view>

#include "mtf/common/dir_blk.h"
#include "mtf/common/file_blk.h"
#include "mtf/common/pdat_blk.h"
#include "mtf/common/vol_blk.h"

namespace MTF {

// A view of the header at the start of an entry.
class FDD_Hdr : private Record_View {
 public:
  static constexpr unsigned int fixed_size = 36;

  // `size` is the room at `data`, at least fixed_size.
  FDD_Hdr(char* data, [[maybe_unused]] unsigned long long size) : Record_View(data) {}

  MTF_FIELD(unsigned short, length, 0)  // of the entry, its strings included
  MTF_FIELD(unsigned int, type, 2)      // a Block_Type
  MTF_FIELD(unsigned short, media_sequence_number, 6)
  MTF_FIELD(unsigned int, attributes, 8)  // of the block's header
  MTF_FIELD(unsigned long long, format_logical_address, 12)
  MTF_FIELD(unsigned long long, displayable_size, 20)
  MTF_FIELD(int, link, 28)  // 0: not known
  MTF_FIELD(unsigned char, os_id, 32)
  MTF_FIELD(unsigned char, os_version, 33)
  MTF_FIELD(unsigned char, string_type, 34)

  // Takes over what the header of a block says, and the number of the media that it stands on.
  void set(const DBLK_Hdr& block, unsigned short seq);
};

// The base of all entries. Dates are copied from the blocks as they stand, since "no date" is no
// time. An entry owns no bytes: its image is the content of a Buffer, which must
// outlive it and grows with the entry's strings.
class FDD_Blk {
 public:
  FDD_Blk(const FDD_Blk&) = delete;
  FDD_Blk& operator=(const FDD_Blk&) = delete;

  FDD_Hdr hdr() const { return FDD_Hdr(buffer_.data(), buffer_.capacity()); }

  // The `length` bytes of the entry.
  const char* image() const { return buffer_.data(); }

 protected:
  // With `init` true starts a new entry of `fixed_size` bytes in `buffer`; with false views the one
  // that is there.
  FDD_Blk(Buffer& buffer, bool init, unsigned int fixed_size);

  char* bytes() { return buffer_.data(); }
  const char* bytes() const { return buffer_.data(); }

  // False if the new entry found no memory: nothing may be set then.
  bool started() const { return started_; }

  // Puts `text` behind the entry and points the address at `address_offset` to it; leaves the
  // address alone for an empty text. False if memory is short or the entry would be longer than its
  // length can say.
  bool store_string(unsigned int address_offset, std::string_view text);

  unsigned short string_size_at(unsigned int address_offset) const;

 private:
  Buffer& buffer_;
  bool started_ = true;
};

// A volume.
class FDD_Vol_Blk : public FDD_Blk {
 public:
  static constexpr unsigned int date_offset = 56;
  static constexpr unsigned int fixed_size = 61;

  FDD_Vol_Blk(Buffer& buffer, bool init) : FDD_Blk(buffer, init, fixed_size) {}

  MTF_FIELD(unsigned int, volb_attributes, 36)
  MTF_DATE_FIELD(media_write_date, date_offset)

  // Fills the entry from a block on the media with the sequence number `seq`. False if memory is
  // short.
  bool set(const Vol_Blk& blk, unsigned short seq);

  // Bytes of the device name.
  unsigned short name_size() const { return string_size_at(40); }
};

// What the entries of directories and files share.
class FDD_Named_Blk : public FDD_Blk {
 public:
  static constexpr unsigned int dates_offset = 36;
  static constexpr unsigned int fixed_size = 68;

  MTF_DATE_FIELD(last_modification_date, 36)
  MTF_DATE_FIELD(creation_date, 41)
  MTF_DATE_FIELD(backup_date, 46)
  MTF_DATE_FIELD(last_access_date, 51)
  MTF_FIELD(unsigned int, block_attributes, 56)  // the DIRB or FILE attributes

  unsigned short name_size() const { return string_size_at(60); }

 protected:
  FDD_Named_Blk(Buffer& buffer, bool init) : FDD_Blk(buffer, init, fixed_size) {}

  bool set_named(const Dir_Blk& blk, unsigned short seq, const std::string& name);
  bool set_named(const File_Shaped_Blk& blk, unsigned short seq, const std::string& name);

 private:
  template <class Blk>
  bool set_all(const Blk& blk, unsigned int attributes, unsigned short seq,
               const std::string& name);
};

// The entry of a block of class Blk.
template <class Blk>
class FDD_Named_Blk_T : public FDD_Named_Blk {
 public:
  FDD_Named_Blk_T(Buffer& buffer, bool init) : FDD_Named_Blk(buffer, init) {}

  // As FDD_Vol_Blk::set; `name` is the whole name, wherever the block has it. False also if the
  // name is too long for an entry.
  bool set(const Blk& blk, unsigned short seq, const std::string& name) {
    return set_named(blk, seq, name);
  }
};

using FDD_Dir_Blk = FDD_Named_Blk_T<Dir_Blk>;
using FDD_File_Blk = FDD_Named_Blk_T<File_Blk>;
using FDD_SLnk_Blk = FDD_Named_Blk_T<SLnk_Blk>;
using FDD_HLnk_Blk = FDD_Named_Blk_T<HLnk_Blk>;
using FDD_Devb_Blk = FDD_Named_Blk_T<Devb_Blk>;
using FDD_PDat_Blk = FDD_Named_Blk_T<PDat_Blk>;

}  // namespace MTF
