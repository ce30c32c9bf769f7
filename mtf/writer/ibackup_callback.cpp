#include "mtf/writer/ibackup_callback.h"

namespace MTF {

bool IFile_Reader::handle_file_blk(File_Blk&, unsigned long long&, Callback_Stat&) {
  return true;
}

bool IBackup_Callback::handle_source_entry_begin(const source_entry&) {
  return true;
}

bool IBackup_Callback::handle_source_entry_end(const source_entry&, bool ok) {
  return ok;
}

bool IBackup_Callback::handle_source_produce_end() {
  return true;
}

unsigned long long IBackup_Callback::file_count_one_percent() const {
  return 10000;
}

int IBackup_Callback::max_file_count_percent() const {
  return 90;
}

bool IBackup_Callback::link_target(const char*, std::string&) {
  return false;
}

}  // namespace MTF
