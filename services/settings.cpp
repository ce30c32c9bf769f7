#include "services/settings.h"

#include "platform/host.h"

namespace MTF {

MTF_Params::MTF_Params()
    : job_tmp_dir_("/var/tmp/mtf-" + std::to_string(platform::current_uid())) {}

MTF_Params& MTF_Params::instance() {
  static MTF_Params params;
  return params;
}

Host_Manager::Host_Manager() : name_(platform::machine_name()) {}

Host_Manager* Host_Manager::instance() {
  static Host_Manager manager;
  return &manager;
}

}  // namespace MTF
