// The first name under which each hard-linked file of a job was met.
#pragma once

#include <ace/Mutex.h>

#include <map>
#include <string>

#include "services/ref_ptr.h"

namespace MTF {

// Shared by all tasks of a job; every operation locks. It takes no other lock under its own.
class Writer_Hardlink_Map {
 public:
  // Stores the full path of the first name of file number `ino`, and the sequence number of the job
  // that holds the file's content. Replaces an entry that is there.
  bool add(unsigned long long ino, const std::string& path, unsigned int seq);

  // What is stored for `ino`; false, with the arguments untouched, if there is nothing.
  bool get(unsigned long long ino, std::string& path);
  bool get(unsigned long long ino, unsigned int& seq);
  bool get(unsigned long long ino, std::string& path, unsigned int& seq);

  // Sets the sequence number of an entry; false if there is none for `ino`.
  bool update(unsigned long long ino, unsigned int seq);

  // Notes that the job's catalog has the content of `ino` under `path`: the first name, or a
  // further one that took its place. False if there is no entry.
  bool note_saved(unsigned long long ino, const std::string& path);

  // The path noted; false if none was.
  bool saved_path(unsigned long long ino, std::string& path);

  // The look-up behind get(). Takes no lock: the one operation that may not be called while another
  // thread changes the map.
  bool get_i(unsigned long long ino, std::string& path, unsigned int& seq);

 private:
  struct Entry {
    std::string path;
    unsigned int seq;
    bool saved = false;
    std::string saved_path;  // empty where it is `path`
  };

  ACE_Mutex lock_;
  std::map<unsigned long long, Entry> map_;
};

// A new empty map; null, with errno 12, when memory is short.
Ref_Ptr<Writer_Hardlink_Map> make_writer_hardlink_map();

}  // namespace MTF
