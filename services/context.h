// The running state that all block writers of one media read.
#pragma once

#include <string>

#include "services/id_mapper.h"

namespace MTF {

struct Context {
  Context() = default;
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  virtual ~Context() = default;

  std::string cur_vol;        // the volume of the last VOLB block
  std::string cur_dir;        // the directory of the last DIRB block, below the volume
  ID_Mapper id_mapper;        // user and group names for the stat streams
  unsigned int err_code = 0;  // 0 for none
  std::string err_msg;
};

}  // namespace MTF
