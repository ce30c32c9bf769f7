#include "mtf/catalog/cat_summary.h"

#include <ace/Log_Msg.h>

#include <cstring>

#include "services/checksum.h"

namespace MTF {
namespace {

constexpr unsigned int summary_checksum_offset = 94;

}  // namespace

Cat_Summary::Cat_Summary() {
  std::memset(record_, 0, sizeof record_);
}

void Cat_Summary::assign(const char* bytes) {
  std::memcpy(record_, bytes, file_size);
}

unsigned short Cat_Summary::calc_checksum() const {
  return header_checksum(record_, summary_checksum_offset);
}

void Cat_Summary::dump() const {
  ACE_DEBUG((LM_INFO,
             ACE_TEXT("Summary: %Q volumes, %Q directories, %Q files (%Q saved, %Q small, %Q "
                      "large), %Q bytes in the source (%Q saved), %Q bytes on the storage.\n"),
             vol_count(), dir_count(), file_count(), inc_file_count(), small_file_count(),
             large_file_count(), total_size(), inc_size(), storage_size()));
}

}  // namespace MTF
