// How the fields of a record of the format are declared: one line for each, with the offset that
// the format gives it.
#pragma once

#include "services/bytes.h"
#include "services/date.h"

// A getter and a setter of the little-endian integer `name` at `offset` of a class that has
// bytes().
#define MTF_FIELD(type, name, offset)               \
  type name() const {                               \
    return ::MTF::load_le<type>(bytes() + offset);  \
  }                                                 \
  void name(type value) {                           \
    ::MTF::store_le<type>(bytes() + offset, value); \
  }

// The same for a date, in seconds since 1970.
#define MTF_DATE_FIELD(name, offset)                                                          \
  long long name() const {                                                                    \
    return ::MTF::mtf_date_time_to_time(reinterpret_cast<const unsigned char*>(bytes()) +     \
                                        (offset));                                            \
  }                                                                                           \
  void name(long long time) {                                                                 \
    ::MTF::time_to_mtf_date_time(time, reinterpret_cast<unsigned char*>(bytes()) + (offset)); \
  }

namespace MTF {

// A view of bytes that lie elsewhere; whoever makes it has checked their size.
class Record_View {
 protected:
  explicit Record_View(char* bytes) : bytes_(bytes) {}
  char* bytes() const { return bytes_; }

 private:
  char* bytes_;
};

}  // namespace MTF
