// Where a string stands in a record (MTF_TAPE_ADDRESS): 16 bits size, 16 bits offset from the first
// byte of the record. A size of 0 means that there is no string.
#pragma once

#include "services/bytes.h"

namespace MTF {

// The 4 bytes of an address inside a record.
struct MTF_TAPE_ADDRESS {
  char bytes[4];
};

class Tape_Address_Getter {
 public:
  explicit Tape_Address_Getter(const MTF_TAPE_ADDRESS* address) : address_(address) {}

  unsigned short size() const { return load_le<unsigned short>(address_->bytes); }
  unsigned short offset() const { return load_le<unsigned short>(address_->bytes + 2); }

 private:
  const MTF_TAPE_ADDRESS* address_;
};

class Tape_Address_Setter {
 public:
  explicit Tape_Address_Setter(MTF_TAPE_ADDRESS* address) : address_(address) {}

  void size(unsigned short value) { store_le(address_->bytes, value); }
  void offset(unsigned short value) { store_le(address_->bytes + 2, value); }

 private:
  MTF_TAPE_ADDRESS* address_;
};

}  // namespace MTF
