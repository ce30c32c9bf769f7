#include "mtf/common/tape_blk.h"

#include <ace/Log_Msg.h>

namespace MTF {

Tape_Blk::Tape_Blk(Buffer& buffer, bool init) : DBLK(buffer, init) {
  if (init) start(block_tape, fixed_size);
}

void Tape_Blk::media_name(const std::string& name) {
  if (has_room(name.size())) return store_string(68, name);
  ACE_ERROR((LM_WARNING, ACE_TEXT("tape name too long, name: %C\n"), name.c_str()));
}

void Tape_Blk::media_description(const std::string& text) {
  if (has_room(text.size())) return store_string(72, text);
  ACE_ERROR((LM_WARNING, ACE_TEXT("tape desc too long, desc: %C"), text.c_str()));
}

void Tape_Blk::software_name(const std::string& name) {
  if (has_room(name.size())) return store_string(80, name);
  ACE_ERROR((LM_WARNING, ACE_TEXT("tape software too long, software: %C"), name.c_str()));
}

}  // namespace MTF
