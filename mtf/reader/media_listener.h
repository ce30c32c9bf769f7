// What the check of a media tells whoever compares it with a catalog.
#pragma once

#include <string_view>

namespace MTF {

// Something that a catalog must list.
struct Media_Object {
  unsigned long long position;
  unsigned int type;
  unsigned long long address;
  unsigned long long size;
  unsigned char string_type;
  std::string_view date;  // of the last modification, 5 bytes; empty for a VOLB
  std::string_view name;
  std::string_view target;  // of a further name of a file the path of the first one
  bool corrupt;             // a CFIL block follows: it must not be listed
};

// The set that the objects belong to.
struct Media_Set {
  unsigned long long position;  // of the SSET block
  unsigned long long address;
  signed char time_zone;
};

// Is told of them in the order of the media. Views are valid until the call returns.
class IMedia_Listener {
 public:
  virtual ~IMedia_Listener() = default;

  virtual void on_set(const Media_Set& set) = 0;
  virtual void on_metadata(unsigned long long position, unsigned long long length) = 0;
  virtual void on_object(const Media_Object& object) = 0;
};

}  // namespace MTF
