#include "mtf/writer/mbc_writer_factory.h"

#include <cerrno>
#include <new>

#include "mtf/writer/type1_mbc_writer.h"

namespace MTF {

IMBC_Writer* MBC_Writer_Factory::create(unsigned short type) {
  if (type != 1) return nullptr;
  IMBC_Writer* writer = new (std::nothrow) Type1_MBC_Writer(opt_, ctx_);
  if (writer == nullptr) errno = ENOMEM;
  return writer;
}

}  // namespace MTF
