// The name of a directory that did not go into its block (PNAM).
#pragma once

#include "mtf/common/name_stream.h"

namespace MTF {

class Path_Name_Stream : public Name_Stream {
 public:
  explicit Path_Name_Stream(const Ref_Ptr<Buffer>& buffer)
      : Name_Stream(buffer, stream_pnam, "path", "Path_Name_Stream") {}
};

}  // namespace MTF
