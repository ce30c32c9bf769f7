#pragma once

namespace agent {

// What a command of mtf-agent ends with.
enum Exit_Code : int {
  exit_done = 0,
  exit_failed = 1,
  exit_usage = 2,    // wrong use: the command line can't be carried out as it stands
  exit_skipped = 3,  // done, but entries were skipped or went bad while they were read
};

}  // namespace agent
