// What the streams of names (fnam_stream.h, pnam_stream.h) share.
#pragma once

#include <string>

#include "mtf/common/stream.h"

namespace MTF {

class Name_Stream : public Stream {
 public:
  // Makes `name` the stream's data, unterminated. False, with a line at LM_ERROR, for more than
  // MTF_PATH_MAX bytes or when memory is short.
  bool name(const std::string& name);

 protected:
  // `kind` and `class_name` are for the lines and outlive the stream.
  Name_Stream(const Ref_Ptr<Buffer>& buffer, Stream_Id id, const char* kind,
              const char* class_name);

 private:
  const char* kind_;
  const char* class_name_;
};

}  // namespace MTF
