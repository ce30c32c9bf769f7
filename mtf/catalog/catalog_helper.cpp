#include "mtf/catalog/catalog_helper.h"

#include <ace/Log_Msg.h>

#include <algorithm>

#include "services/text.h"

namespace MTF {
namespace {

bool separated_name(const Cat_Blk& block, char separator, std::string& out) {
  if (!block_name(block, out)) return false;
  std::replace(out.begin(), out.end(), '\0', separator);
  return true;
}

}  // namespace

void Cat_Named_Blk::set_from(const DBLK& blk, const Cat_Place& place, unsigned short flags,
                             unsigned long long space) {
  hdr().seq(place.seq);
  hdr().format_logical_address(blk.hdr().format_logical_address());
  hdr().size(blk.hdr().displayable_size());
  hdr().string_type(blk.hdr().string_type());
  hdr().sset_off(place.sset_off);
  hdr().sset_fla(place.sset_fla);
  hdr().time_zone(place.time_zone);
  hdr().flags(flags);
  hdr().space(space);
}

bool Cat_Named_Blk::set_queued_name(unsigned int address_offset, unsigned short seq,
                                    const std::string& name) {
  hdr().seq(seq);
  hdr().string_type(string_bytes);
  return store_name(address_offset, name);
}

Cat_Vol_Blk::Cat_Vol_Blk(char* data, unsigned int size) : Cat_Named_Blk(data, size, false) {
  stamp(Layout::fixed_size, block_volb);
}

bool Cat_Vol_Blk::set(const Vol_Blk& blk, unsigned short seq, unsigned long long sset_off,
                      unsigned long long sset_fla, signed char time_zone, unsigned short flags) {
  stamp(Layout::fixed_size, block_volb);
  set_from(blk, {seq, sset_off, sset_fla, time_zone}, flags, 0);
  if (!store_name(Layout::name, blk.device_name())) return false;
  seal();
  return true;
}

bool Cat_Vol_Blk::set(unsigned short seq, const std::string& name) {
  stamp(Layout::fixed_size, block_volb);
  if (!set_queued_name(Layout::name, seq, name)) return false;
  seal();
  return true;
}

bool Cat_Dated_Blk::set_dated(unsigned int type, const DBLK& blk, long long date,
                              const Cat_Place& place, unsigned short flags,
                              unsigned long long space, unsigned long long ino,
                              const std::string& name) {
  stamp(Layout::fixed_size, type);
  set_from(blk, place, flags, space);
  hdr().ino(ino);
  time(date);
  if (!store_name(Layout::name, name)) return false;
  seal();
  return true;
}

bool Cat_Dated_Blk::set_queued(unsigned int type, unsigned short seq, const std::string& name,
                               long long time, unsigned long long size, unsigned short flags,
                               unsigned long long ino) {
  stamp(Layout::fixed_size, type);
  if (!set_queued_name(Layout::name, seq, name)) return false;
  hdr().size(size);
  hdr().flags(flags);
  hdr().ino(ino);
  this->time(time);
  seal();
  return true;
}

Cat_Dir_Blk::Cat_Dir_Blk(char* data, unsigned int size) : Cat_Dated_Blk(data, size, false) {
  stamp(Layout::fixed_size, block_dirb);
}

bool Cat_Dir_Blk::set(const Dir_Blk& blk, unsigned short seq, unsigned long long sset_off,
                      unsigned long long sset_fla, signed char time_zone, unsigned short flags,
                      unsigned long long space, const std::string& name) {
  return set_dated(block_dirb, blk, blk.last_modification_date(),
                   {seq, sset_off, sset_fla, time_zone}, flags, space, 0, name);
}

bool Cat_Dir_Blk::set(unsigned short seq, const std::string& name) {
  stamp(Layout::fixed_size, block_dirb);
  if (!set_queued_name(Layout::name, seq, name)) return false;
  seal();
  return true;
}

bool leaf_name(const Cat_Blk& block, std::string& out) {
  std::string bytes;
  if (!block_name(block, bytes)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Empty file name\n")), false);
  }
  return mtf_string_to_utf8(bytes.data(), bytes.data() + bytes.size(), block.hdr().string_type(),
                            out);
}

bool get_device_from_vol(const Cat_Vol_Blk& block, char separator, std::string& out) {
  return separated_name(block, separator, out);
}

bool get_name_from_dir(const Cat_Dir_Blk& block, char separator, std::string& out) {
  return separated_name(block, separator, out);
}

}  // namespace MTF
