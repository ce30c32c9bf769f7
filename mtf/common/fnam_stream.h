// The name of a file that did not go into its block (FNAM).
#pragma once

#include "mtf/common/name_stream.h"

namespace MTF {

class File_Name_Stream : public Name_Stream {
 public:
  explicit File_Name_Stream(const Ref_Ptr<Buffer>& buffer)
      : Name_Stream(buffer, stream_fnam, "file", "File_Name_Stream") {}
};

}  // namespace MTF
