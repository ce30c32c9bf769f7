// What a host does with the jobs on a storage: list, verify, restore. Every byte that comes from
// the storage is checked before it is believed; a damaged piece gives its faults and all that can
// still be read.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "mtf/reader/piece_store.h"

namespace MTF {

// The pieces of one job.
struct Job_Pieces {
  std::string stem;
  unsigned int seq = 0;
  // Channel numbers in rising order: 0 alone, or 1 to N.
  std::vector<unsigned long long> channels;
  bool complete = false;  // a media and a catalog for each channel, and no channel is missing
};

// The jobs of `stem` (of every stem where it is empty), by stem and sequence number. False, with
// `error` set, if the pieces can't be listed.
bool find_jobs(IPiece_Store& store, const std::string& stem, std::vector<Job_Pieces>& jobs,
               std::string& error);

// Something that is wrong with a piece.
struct Fault {
  std::string piece;
  unsigned long long position;  // in bytes from the start of the piece
  std::string text;
};
using Fault_Sink = std::function<void(const Fault&)>;

// One entry of a job's catalogs.
struct Job_Entry {
  unsigned int type;  // a Block_Type
  std::string path;   // in system form: `VOLUME\dir\name`, a directory without a last separator
  // Bytes of content; of a symbolic link those of its target, of a further name those of the first
  // name's path.
  unsigned long long size;
  long long mtime;             // seconds since 1970; 0 where there is no date
  unsigned int seq;            // the job whose media holds it
  unsigned long long channel;  // of this job's catalog, and of that job's media
  unsigned long long address;  // format logical address on that media
  bool dated = false;          // else `mtime` says nothing

  // The file that a further name is of: the entry of its first name, on the same channel.
  struct File {
    unsigned int type;
    unsigned long long size;
    unsigned int seq;
    unsigned long long address;
  };
  std::optional<File> file;  // where catalogs tell it; the medias alone don't
};

// Gives every entry of the catalogs of a job, channel by channel in the order of the walk; a volume
// or directory that several channels hold, or that the walk came back to, is given once. False if a
// fault kept anything from being read.
bool list_job(IPiece_Store& store, const Job_Pieces& job,
              const std::function<void(const Job_Entry&)>& on_entry, const Fault_Sink& on_fault);

// The same from the medias of the job alone: from the catalog that each carries, found from the end
// of its media, without a look at the blocks in between. A media without such a catalog, one that
// was cut for instance, is a fault, and its blocks are listed in its place; a file whose directory
// is lost then stands below `lost+found` of its volume. Files that another job's media holds are
// not in it.
bool list_job_from_media(IPiece_Store& store, const Job_Pieces& job,
                         const std::function<void(const Job_Entry&)>& on_entry,
                         const Fault_Sink& on_fault);

enum class Device_Kind { fifo, character, block };

// What a catalog doesn't say of the links and devices of a job: each look reads a block of a media.
// Used by one thread.
class Link_Targets {
 public:
  // Keeps both references.
  Link_Targets(IPiece_Store& store, const Job_Pieces& job);
  ~Link_Targets();
  Link_Targets(const Link_Targets&) = delete;
  Link_Targets& operator=(const Link_Targets&) = delete;

  // Gives the native target of a symbolic link (SLNK), or of a further name (HLNK) the system path
  // of the first one. False, with `why` set, if it can't be read.
  bool find(const Job_Entry& entry, std::string& target, std::string& why);

  // Tells what kind of a device a DEVB is. False likewise.
  bool find_kind(const Job_Entry& entry, Device_Kind& kind, std::string& why);

 private:
  struct Medias;
  std::unique_ptr<Medias> medias_;
};

// What a job holds, as its catalogs tell.
struct Job_Contents {
  bool incremental = false;  // it can take files from earlier jobs, as far as anything tells
  unsigned int base = 0;  // the job that it started from; 0 for a full one, or if nothing tells it
  // Files, links and devices of the whole tree, and bytes of content, of which links have none.
  unsigned long long files = 0, bytes = 0;
  // What of it the job saved itself.
  unsigned long long saved_files = 0, saved_bytes = 0;
  // The jobs whose medias hold what the catalogs list, with the bytes of content on each: a restore
  // needs all of them.
  std::map<unsigned int, unsigned long long> held_by;
};

// Reads the catalogs of `job` once. False if a fault kept anything from being read; `out` then has
// the rest. `on_fault` may be empty.
bool read_contents(IPiece_Store& store, const Job_Pieces& job, Job_Contents& out,
                   const Fault_Sink& on_fault);

// The later jobs of the same name that can't do without `job`: they took files from it, or started
// from it, or can't be read well enough to tell. In rising order; false, with `error` set, if the
// jobs can't be found.
bool find_dependents(IPiece_Store& store, const Job_Pieces& job, std::vector<unsigned int>& seqs,
                     std::string& error);

// Looks among `jobs`, those of the same name, for one that `job` took files from and that isn't
// complete or lacks their channel. Gives its number; 0 if there is none. What can't be read of the
// catalogs of `job` counts for nothing: whoever needs it finds the damage.
unsigned int find_lost_job(IPiece_Store& store, const Job_Pieces& job,
                           const std::vector<Job_Pieces>& jobs);

struct Verify_Summary {
  unsigned long long faults = 0;
  unsigned long long blocks = 0;         // descriptor blocks walked
  unsigned long long streams = 0;        // data streams walked
  unsigned long long entries = 0;        // catalog entries checked
  unsigned long long corrupt_files = 0;  // files that the job itself marked as corrupt; no faults
  unsigned long long bytes = 0;
};

// Walks each media of a job block by block and stream by stream, checks it against the format,
// walks each catalog in step with its media and checks the two against each other, and looks up the
// entries of earlier jobs in the medias of those jobs. Memory grows with the number of files that
// have several names, by a few bytes each, and with nothing else. Behind damage it goes on with the
// next sound block or record. `on_fault` may be empty.
Verify_Summary verify_job(IPiece_Store& store, const Job_Pieces& job, const Fault_Sink& on_fault);

struct Restore_Options {
  std::string to;                  // native directory, made where it is missing
  std::vector<std::string> paths;  // native or system paths to restore with all below; all if empty
  // Brings back what those medias of the job hold that are there, also behind damage, and needs no
  // catalog and no other channel. What damage took is named where the media's own catalog tells it;
  // a file whose directory is lost comes below `lost+found`, and one of a lost volume below `/`.
  // Files that another job's media holds aren't restored.
  bool from_media = false;
};

struct Restore_Summary {
  unsigned long long directories = 0;
  unsigned long long files = 0;  // links, devices and further names among them
  unsigned long long bytes = 0;
  unsigned long long failed = 0;  // entries that could not be restored, each told to on_problem
  std::vector<std::string> not_found;    // paths asked for that the job doesn't hold
  unsigned long long without_owner = 0;  // entries whose owner the user may not give
  std::string owner_fault;               // the reason of the first of them
};

// Takes each entry that could not be restored, or not wholly: its native path and why.
using Problem_Sink = std::function<void(const std::string& path, const std::string& why)>;

// Writes what a job holds below `options.to`, as `<to>/dir/name` (a volume `X:` as
// `<to>/X/dir/name`): content with its holes, modification time, mode, owner and extended
// attributes, POSIX ACLs among them. Creates nothing outside it whatever a name holds, and follows
// no link below it. A file gets its name, in place of what had it, only when all its checksums are
// right; one whose mode isn't stored stays the user's alone, and an owner that the user may not
// give is left out and counted. A directory whose mode is stored is the user's alone until all in
// it is there. One that is made on the way to a path asked for gets its attributes too; where the
// job doesn't hold them it is the user's alone. Of `/X` and a volume `X:` the one that comes first
// is restored; the other is a problem. A link comes back as it is. A further name of a file becomes
// one of what was restored of it in this run; where nothing was, or where the file system refuses,
// it gets a copy of the content. A device that the user may not make is a problem. `on_fault` and
// `on_problem` may be empty.
Restore_Summary restore_job(IPiece_Store& store, const Job_Pieces& job,
                            const Restore_Options& options, const Fault_Sink& on_fault,
                            const Problem_Sink& on_problem);

// Writes the pre-action data of a job to the native path `file`, in place of a regular file that is
// there. False, with `why` set, if the job has none or if it could not be read or written whole;
// what was there is then still there. `from_media` as in Restore_Options. `on_fault` may be empty.
bool restore_pre_action(IPiece_Store& store, const Job_Pieces& job, const std::string& file,
                        unsigned long long& bytes, const Fault_Sink& on_fault, std::string& why,
                        bool from_media = false);

}  // namespace MTF
