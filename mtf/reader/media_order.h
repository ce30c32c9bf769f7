// The order in which blocks stand on a media.
#pragma once

#include <string>

namespace MTF {

// Follows the frame of a media: TAPE, filemark, SSET, entries, filemark, ESET, ESET again where a
// catalog stands between the two, filemark, EOTM, filemark. A storage that has filemarks of its own
// leaves no SFMB blocks on the media.
class Media_Order {
 public:
  // Takes the next block. False, with `why` set, if it has no place there; the order then goes on
  // from it.
  bool take(unsigned int type, bool after_gap, std::string& why);

  // True if nothing may follow and nothing is missing.
  bool complete() const { return state_ == State::end || (state_ == State::eotm && !marks_); }

 private:
  enum class State { start, tape, open, set, closed, eset, eset_copy, ended, eotm, end };

  State after(unsigned int type) const;
  State filemark_after() const;

  State state_ = State::start;
  bool marks_ = true;  // the media has SFMB blocks
};

}  // namespace MTF
