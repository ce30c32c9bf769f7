#include "mtf/writer/backup_context.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include "oxbase/system.h"

namespace MTF {

Backup_Context::Backup_Context(unsigned long long pba_shift, unsigned int fla_shift)
    : pba_shift(pba_shift), fla_shift(static_cast<unsigned short>(fla_shift)) {}

void Backup_Context::add_length(unsigned long long count) {
  set_length(length + count);
}

void Backup_Context::set_length(unsigned long long value) {
  length = value;
  pba = length >> pba_shift;
  fla = length >> fla_shift;
}

void Backup_Context::set_cur_vol(const std::string& name) {
  cur_vol = name;
  if (volume_map != nullptr) {
    const auto found = volume_map->find(cur_vol);
    if (found != volume_map->end()) {
      shadow_vol = found->second;
    } else {
      shadow_vol.clear();
      ACE_ERROR((LM_WARNING, ACE_TEXT("Failed to find shadow volume, vol=%s\n"), cur_vol.c_str()));
    }
  }
  cur_dir.clear();
  dir_missing = false;
}

bool Backup_Context::write_failed(IWriter& writer) {
  err_code = error_write;
  err_msg = writer.err_msg();
  return false;
}

void Backup_Context::catalog_failed() {
  err_code = error_catalog;
  err_msg = oxbase::POSIX_Error(ACE_OS::last_error(), 1).c_str();
}

}  // namespace MTF
