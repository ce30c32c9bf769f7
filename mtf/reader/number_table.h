// A table that numbers things.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace MTF {

// Numbers of things, found by what the things are. Open addressing: 4 bytes for each place.
class Number_Table {
 public:
  // The number for which `same` holds, or a new one from `make`.
  template <class Same, class Make, class Hash_Of>
  unsigned int find_or_add(std::size_t hash, Same same, Make make, Hash_Of hash_of) {
    if (2 * (used_ + 1) > places_.size()) grow(hash_of);
    std::size_t at = hash & (places_.size() - 1);
    for (; places_[at] != none; at = (at + 1) & (places_.size() - 1)) {
      if (same(places_[at])) return places_[at];
    }
    ++used_;
    return places_[at] = make();
  }

 private:
  static constexpr unsigned int none = ~0U;

  template <class Hash_Of>
  void grow(Hash_Of hash_of) {
    std::vector<unsigned int> before(std::max<std::size_t>(64, 2 * places_.size()), none);
    before.swap(places_);
    for (const unsigned int number : before) {
      if (number == none) continue;
      std::size_t at = hash_of(number) & (places_.size() - 1);
      while (places_[at] != none) at = (at + 1) & (places_.size() - 1);
      places_[at] = number;
    }
  }

  std::vector<unsigned int> places_;
  std::size_t used_ = 0;
};

}  // namespace MTF
