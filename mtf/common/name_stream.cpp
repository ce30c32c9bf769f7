#include "mtf/common/name_stream.h"

#include <ace/Log_Msg.h>

#include "mtf/common/dblk.h"

namespace MTF {

Name_Stream::Name_Stream(const Ref_Ptr<Buffer>& buffer, Stream_Id id, const char* kind,
                         const char* class_name)
    : Stream(buffer), kind_(kind), class_name_(class_name) {
  hdr().id(id);
}

bool Name_Stream::name(const std::string& name) {
  const auto size = static_cast<unsigned int>(name.size());
  if (name.size() > MTF_PATH_MAX) {
    ACE_ERROR_RETURN((LM_ERROR,
                      ACE_TEXT("Failed to set %C name, name.length = %u is large than "
                               "MTF_PATH_MAX = %u\n"),
                      kind_, size, MTF_PATH_MAX),
                     false);
  }
  if (!buffer()->expand(size)) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to expand buffer at %C::name\n"), class_name_),
                     false);
  }
  buffer()->copy(name.data(), size);
  hdr().length(size);
  return true;
}

}  // namespace MTF
