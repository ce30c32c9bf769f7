#include "agent/read_progress.h"

#include "agent/progress.h"
#include "agent/text.h"

namespace agent {

Read_Progress::Read_Progress(MTF::IPiece_Store& store, Console& console, bool shown)
    : store_(store), line_(console, [this, shown](double seconds) {
        if (!shown || seq_ == 0) return std::string();
        return "job " + std::to_string(seq_) + ": " + size_text(store_.bytes()) + " read" +
               rate_text(store_.bytes(), seconds);
      }) {}

}  // namespace agent
