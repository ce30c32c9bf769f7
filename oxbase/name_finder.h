// Looks up names in a list, in one pass over both.
#pragma once

#include <string_view>

#include "oxbase/directory_iterator.h"

namespace oxbase {

// Tells whether an element of [at, end) has a given name; `name_of` gives the name of an element.
// The elements, and the names asked for, come in the order of path_less().
template <class Iterator, class Name_Of>
class Name_Finder {
 public:
  Name_Finder(Iterator at, Iterator end, Name_Of name_of) : at_(at), end_(end), name_of_(name_of) {}

  bool operator()(std::string_view name) {
    while (at_ != end_ && path_less(name_of_(*at_), name)) ++at_;
    return at_ != end_ && name_of_(*at_) == name;
  }

 private:
  Iterator at_;
  Iterator end_;
  Name_Of name_of_;
};

}  // namespace oxbase
