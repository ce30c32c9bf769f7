#include "mtf/reader/media_order.h"

#include "mtf/reader/block_view.h"

namespace MTF {

bool Media_Order::take(unsigned int type, bool after_gap, std::string& why) {
  if (state_ == State::tape && type == block_sset && !after_gap) marks_ = false;
  const State next = after(type);
  const bool fits = next != State::start;
  if (fits) {
    state_ = next;
    return true;
  }
  // The state in which the block would have been expected, so that one fault isn't told twice.
  if (type == block_tape) state_ = State::tape;
  if (type == block_sset) state_ = State::set;
  if (type == block_eset) state_ = State::eset;
  if (type == block_eotm) state_ = State::eotm;
  const Block_Layout* layout = block_layout(type);
  if (layout != nullptr && layout->is_entry) state_ = State::set;
  why = block_word(type) + " block out of order";
  return after_gap;
}

// The state behind a block of `type`; `start` if none may stand here.
Media_Order::State Media_Order::after(unsigned int type) const {
  const bool entry = block_layout(type) != nullptr && block_layout(type)->is_entry;
  if (entry) return state_ == State::set ? State::set : State::start;
  switch (type) {
    case block_tape:
      return state_ == State::start ? State::tape : State::start;
    case block_sfmb:
      return filemark_after();
    case block_sset:
      return state_ == (marks_ ? State::open : State::tape) ? State::set : State::start;
    case block_eset:
      if (state_ == State::eset) return State::eset_copy;
      return state_ == (marks_ ? State::closed : State::set) ? State::eset : State::start;
    case block_eotm:
      if (state_ == State::ended) return State::eotm;
      return !marks_ && (state_ == State::eset || state_ == State::eset_copy) ? State::eotm
                                                                              : State::start;
    default:
      return State::start;
  }
}

Media_Order::State Media_Order::filemark_after() const {
  if (!marks_) return State::start;
  switch (state_) {
    case State::tape:
      return State::open;
    case State::set:
      return State::closed;
    case State::eset:
    case State::eset_copy:
      return State::ended;
    case State::eotm:
      return State::end;
    default:
      return State::start;
  }
}

}  // namespace MTF
