#include "mtf/writer/writer_hardlink_map.h"

#include <ace/Guard_T.h>

#include <new>

namespace MTF {

bool Writer_Hardlink_Map::add(unsigned long long ino, const std::string& path, unsigned int seq) {
  ACE_GUARD_RETURN(ACE_Mutex, guard, lock_, false);
  map_[ino] = Entry{path, seq, false, {}};
  return true;
}

bool Writer_Hardlink_Map::get(unsigned long long ino, std::string& path) {
  unsigned int seq;
  return get(ino, path, seq);
}

bool Writer_Hardlink_Map::get(unsigned long long ino, unsigned int& seq) {
  std::string path;
  return get(ino, path, seq);
}

bool Writer_Hardlink_Map::get(unsigned long long ino, std::string& path, unsigned int& seq) {
  ACE_GUARD_RETURN(ACE_Mutex, guard, lock_, false);
  return get_i(ino, path, seq);
}

bool Writer_Hardlink_Map::update(unsigned long long ino, unsigned int seq) {
  ACE_GUARD_RETURN(ACE_Mutex, guard, lock_, false);
  const auto found = map_.find(ino);
  if (found == map_.end()) return false;
  found->second.seq = seq;
  return true;
}

bool Writer_Hardlink_Map::note_saved(unsigned long long ino, const std::string& path) {
  ACE_GUARD_RETURN(ACE_Mutex, guard, lock_, false);
  const auto found = map_.find(ino);
  if (found == map_.end()) return false;
  Entry& entry = found->second;
  entry.saved = true;
  if (path == entry.path) {
    entry.saved_path.clear();
  } else {
    entry.saved_path = path;
  }
  return true;
}

bool Writer_Hardlink_Map::saved_path(unsigned long long ino, std::string& path) {
  ACE_GUARD_RETURN(ACE_Mutex, guard, lock_, false);
  const auto found = map_.find(ino);
  if (found == map_.end() || !found->second.saved) return false;
  path = found->second.saved_path.empty() ? found->second.path : found->second.saved_path;
  return true;
}

bool Writer_Hardlink_Map::get_i(unsigned long long ino, std::string& path, unsigned int& seq) {
  const auto found = map_.find(ino);
  if (found == map_.end()) return false;
  path = found->second.path;
  seq = found->second.seq;
  return true;
}

Ref_Ptr<Writer_Hardlink_Map> make_writer_hardlink_map() {
  return share(new (std::nothrow) Writer_Hardlink_Map);
}

}  // namespace MTF
