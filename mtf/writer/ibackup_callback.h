// Sources of the host's own: a tree that the host lists, examines and reads in place of the
// operating system.
#pragma once

#include <list>
#include <string>

#include "mtf/catalog/isrc_lister.h"
#include "mtf/common/file_blk.h"
#include "oxbase/directory_iterator.h"
#include "services/event_handler.h"
#include "services/source_list.h"

namespace MTF {

// What the host says of a path.
struct Callback_Stat {
  unsigned long long gid = 0;
  unsigned long long uid = 0;
  unsigned long long mode = 0;  // type and permission bits in the form of st_mode
  unsigned long long dev = 0;
  unsigned long long ino = 0;
  unsigned long long nlink = 0;
  unsigned long long rdev = 0;
  // Bytes; the length of the file's data stream, as lstat() gives it. What a reader gives beyond it
  // isn't saved, and nothing tells; less is event_corrupt.
  unsigned long long size = 0;
  unsigned long long reserved = 0;  // carried unread
  unsigned long long blocks = 0;    // allocated blocks of 512 bytes
  long long atime = 0;              // seconds since 1970
  long long mtime = 0;
  long long ctime = 0;
  std::string owner;
  std::string group;
};

// Reads the files of one task, one after the other.
class IFile_Reader {
 public:
  virtual ~IFile_Reader() = default;

  // 0 open; 1 can't be opened, so the file is skipped, with an event; -1 ends the data set. Any
  // other value leaves the file out of the job, and no event and no count tells.
  virtual int open(const char* path) = 0;
  virtual bool is_open() = 0;
  // -1 stops the data set; 1 says that there is no more; else the buffer's size tells how many
  // bytes were put at its data pointer, within its capacity, and a size of 0 that there is no more.
  virtual int read(Buffer& data) = 0;
  // -1 is a failure.
  virtual int close() = 0;

  // The host's last word on a file, before its block goes to the media: `space` goes to the catalog
  // and `stat` into the stat stream. False stops the block.
  virtual bool handle_file_blk(File_Blk& blk, unsigned long long& space, Callback_Stat& stat);
};

// Used by one thread. A source is named as the host gave it. What lies below is named in the
// system's form, `X:\a\f` or `/\a\f`, but that lstat() of a directory has the host's separator
// behind the volume. read_dir() has the system's form for sources, too. The path of a directory may
// end in a separator.
class IBackup_Callback {
 public:
  virtual ~IBackup_Callback() = default;

  // The path separator of the host's sources, a backslash or a slash.
  virtual char separator() = 0;
  // False where the path can't be examined.
  virtual bool lstat(const char* path, Callback_Stat& stat) = 0;
  // Keeps its place for hosts that tell a path's existence apart; the system doesn't ask.
  virtual bool exists(const char* path) = 0;
  // Null is a failure.
  virtual Ref_Ptr<IFile_Reader> create_file_reader() = 0;
  // Null where the host has no lister; the tree is walked through read_dir() then. A lister gives
  // each name of a hard-linked file as a file: the job can't tell which names belong together.
  // Where links are saved it may give the first name with cat_first_link and a file number of its
  // own, and behind it each further name as HLNK with that number. Its blocks have the number
  // `seq`. In a chain of jobs each list has the order of a walk: files ahead of the directories of
  // the same parent, both by the bytes of their names, a directory ahead of all below it. An
  // incremental job fails where its base has another order.
  virtual Ref_Ptr<ISrc_Lister> create_source_lister(const std::list<std::string>* sources,
                                                    unsigned short seq, Event_Handler* handler,
                                                    const IFilter* filter) = 0;
  // The entries of a directory, in any order. False where it can't be read.
  virtual bool read_dir(const char* path, std::list<oxbase::Directory_Entry_T<char>>& entries) = 0;

  // Around each source of a walk; false stops the listing.
  virtual bool handle_source_entry_begin(const source_entry& entry);
  virtual bool handle_source_entry_end(const source_entry& entry, bool ok);
  virtual bool handle_source_produce_end();
  // How many files make one percent of the listing, above 0, and the highest percent before its
  // end.
  virtual unsigned long long file_count_one_percent() const;
  virtual int max_file_count_percent() const;

  // Where links are saved (Backup_Option::save_links): what a symbolic link leads to, as bytes with
  // a slash between names; and of a further name that a lister gave with a file number of which it
  // gave no first name, the path of the first name. False where the host can't tell, which is the
  // default: the entry is left out.
  virtual bool link_target(const char* path, std::string& target);
};

// Makes one callback for each task of a job; each is used by one thread, all at the same time.
class IBackup_Callback_Factory {
 public:
  virtual ~IBackup_Callback_Factory() = default;

  // Null on failure.
  virtual Ref_Ptr<IBackup_Callback> create() = 0;
};

}  // namespace MTF
