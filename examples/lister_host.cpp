// Saves the files and directories that standard input names, one on a line, or with -0 with a NUL
// behind each, as from `find -print0`:
//
//   lister_host [-0] EXISTING_DIRECTORY NAME [CHANNELS]
//
// A directory is saved without what is in it. The list that was saved goes into the file NAME.list
// beside the pieces.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "mtf/catalog/catalog_helper.h"
#include "mtf/writer/backup.h"
#include "mtf/writer/source_writer.h"
#include "oxbase/path.h"
#include "platform/native_path.h"
#include "platform/stat.h"
#include "services/compression.h"
#include "services/file_buf.h"
#include "services/id_mapper.h"
#include "services/json_spirit.h"

namespace {

constexpr char separator = '\\';

// ------------------------------------------------------------------------------- the storage
// One piece at a time, as a file of a directory. Small writes are gathered: a media comes in pieces
// of a few hundred bytes, and a call of the system for each would cost more than what it carries.
struct Storage : MTF::Channel, MTF::IWriter {
  static constexpr std::size_t block_size = 1 << 20;
  static constexpr std::size_t direct_size = 64 << 10;

  explicit Storage(const std::string& dir) : directory(dir) { gathered.reserve(block_size); }
  bool open(const char* name, int, int) override {
    file = std::ofstream(directory + "/" + name, std::ios::binary);
    gathered.clear();
    bytes = 0;
    return file.good();
  }
  unsigned long long write(const char* data, unsigned long long size) override {
    if (gathered.size() + size > block_size || size >= direct_size) drain();
    if (size >= direct_size) {
      file.write(data, static_cast<std::streamsize>(size));
    } else {
      gathered.append(data, size);
    }
    if (!file) return 0;
    bytes += size;
    return size;
  }
  bool flush() override { return file.good(); }
  unsigned long long write_filemark(unsigned long long) override { return 0; }
  unsigned long long size() override { return bytes; }
  bool close() override {
    if (!file.is_open()) return true;
    drain();
    file.close();
    return file.good();
  }
  void disconnect() override {}
  bool remove(const char* name) override {
    return std::remove((directory + "/" + name).c_str()) == 0;
  }
  MTF::IWriter* writer() override { return this; }
  MTF::IReader* reader() override { return nullptr; }
  std::string err_msg() override { return file.good() ? "" : "the storage failed"; }

  void drain() {
    file.write(gathered.data(), static_cast<std::streamsize>(gathered.size()));
    gathered.clear();
  }

  std::string directory;
  std::string gathered;
  std::ofstream file;
  unsigned long long bytes = 0;
};

struct Storage_Factory : MTF::Channel_Factory {
  explicit Storage_Factory(const std::string& dir) : directory(dir) {}
  MTF::Ref_Ptr<MTF::Channel> create() override {
    return MTF::Ref_Ptr<MTF::Channel>(new Storage(directory));
  }
  std::string directory;
};

struct Events : MTF::Event_Handler {
  int handle_event(int, const json_spirit::Value& document) override {
    using json = json_spirit::Value;
    // A name may hold any bytes.
    std::cout << document.dump(-1, ' ', false, json::error_handler_t::replace) << std::endl;
    return 0;
  }
};

// ------------------------------------------------------------------------------- the sources
bool is_directory(const _stat64& stat) {
  return (stat.st_mode & 0xF000) == 0x4000;
}

bool is_socket(const _stat64& stat) {
  return (stat.st_mode & 0xF000) == 0xC000;
}

// Goes through the named paths, which are sorted, and gives the directories on the way to each.
class Lister : public MTF::ISrc_Lister {
 public:
  Lister(std::vector<std::string> paths, unsigned short seq, const std::string& list_path)
      : paths_(std::move(paths)), seq_(seq), list_(seq, separator) {
    sound_ = list_.open(list_path);
  }

  bool next(MTF::Cat_Blk& block) override {
    while (sound_ && at_ < paths_.size()) {
      const std::string& path = paths_[at_];
      const _stat64& stat = examined(at_);
      if (stat.st_mode == 0 || is_socket(stat)) {
        std::cerr << "left out: " << platform::display_path(path) << std::endl;
        ++at_;
        continue;
      }
      const std::string parent = path.substr(0, path.rfind(separator) + 1);
      const std::string wanted = is_directory(stat) ? path + separator : parent;
      if (wanted != current_) return take(step(wanted, block), block);
      ++at_;
      if (!is_directory(stat)) return take(entry(path, parent.size(), stat, block), block);
    }
    return sound_ && list_.close() && block.alloc_buffer(MTF::Cat_Hdr::fixed_size) &&
           (block.set_end(), true);
  }

 private:
  // Examines many paths at a time. The tasks behind a lister then find many blocks at once, and
  // needn't be woken for each.
  const _stat64& examined(std::size_t index) {
    if (index == first_ + stats_.size()) {
      first_ = index;
      stats_.assign(std::min(batch, paths_.size() - first_), _stat64());
      for (std::size_t i = 0; i < stats_.size(); ++i) {
        // What can't be examined has no mode.
        if (platform::stat_link(paths_[first_ + i], stats_[i]) != 0) stats_[i] = _stat64();
      }
    }
    return stats_[index - first_];
  }
  // One step from the current directory to `wanted`: its volume, a directory on the way, or itself.
  // A file belongs to the last directory before it, so a way back gives the directory again.
  bool step(const std::string& wanted, MTF::Cat_Blk& block) {
    const std::size_t below = wanted.find(separator) + 1;
    if (current_.compare(0, below, wanted, 0, below) != 0 || wanted.size() == below) {
      current_ = wanted.substr(0, below);
      const std::string volume = wanted.substr(0, below - 1);
      return block.alloc_buffer(MTF::Cat_Vol_Blk::buffer_need(volume.size())) &&
             MTF::Cat_Vol_Blk(block.data(), block.capacity()).set(seq_, volume);
    }
    std::size_t end = below;
    do end = wanted.find(separator, end) + 1;
    while (end < wanted.size() && current_.compare(0, end, wanted, 0, end) == 0);
    current_ = wanted.substr(0, end);
    std::string name = wanted.substr(below, end - below);
    std::replace(name.begin(), name.end(), separator, '\0');
    return block.alloc_buffer(MTF::Cat_Dir_Blk::buffer_need(name.size())) &&
           MTF::Cat_Dir_Blk(block.data(), block.capacity()).set(seq_, name);
  }
  // Of a file with several names the first one is marked, and the others are further names.
  bool entry(const std::string& path, std::size_t name_at, const _stat64& stat,
             MTF::Cat_Blk& block) {
    const std::string name = path.substr(name_at);
    unsigned short flags = 0;
    if (stat.st_nlink > 1) {
      const auto [first, is_new] = firsts_.try_emplace(stat.st_ino, path);
      if (!is_new) return put<MTF::Cat_HLnk_Blk>(name, stat, first->second.size(), 0, block);
      flags = MTF::cat_first_link;
    }
    const auto size = static_cast<unsigned long long>(stat.st_size);
    switch (stat.st_mode & 0xF000) {
      case 0x8000:
        return put<MTF::Cat_File_Blk>(name, stat, size, flags, block);
      case 0xA000:
        return put<MTF::Cat_SLnk_Blk>(name, stat, size, flags, block);
      default:
        return put<MTF::Cat_Devb_Blk>(name, stat, 0, flags, block);
    }
  }
  template <class Blk>
  bool put(const std::string& name, const _stat64& stat, unsigned long long size,
           unsigned short flags, MTF::Cat_Blk& block) {
    return block.alloc_buffer(static_cast<unsigned int>(Blk::buffer_need(name.size()))) &&
           Blk(block.data(), block.capacity())
               .set(seq_, name, stat.st_mtime, size, flags, stat.st_ino);
  }
  bool take(bool made, const MTF::Cat_Blk& block) { return made && list_.write(block); }

  static constexpr std::size_t batch = 256;

  std::vector<std::string> paths_;
  std::vector<_stat64> stats_;  // of the paths from first_ on
  std::size_t first_ = 0;
  unsigned short seq_;
  MTF::Source_Writer list_;
  bool sound_ = false;
  std::size_t at_ = 0;
  std::string current_;  // with a separator at its end; empty before the first volume
  std::map<unsigned long long, std::string>
      firsts_;  // of files with several names, by their number
};

class Reader : public MTF::IFile_Reader {
 public:
  int open(const char* path) override { return file_.open(path, 0, 0) != 0 ? 1 : 0; }
  bool is_open() override { return false; }  // open() closes the file before
  int read(MTF::Buffer& data) override {
    const std::streamsize n = file_.sgetn(data.data(), data.capacity());
    if (n < 0) return 1;  // the file counts as corrupt, the job goes on
    data.size(static_cast<unsigned int>(n));
    return 0;
  }
  int close() override { return 0; }

 private:
  MTF_FS::ifilebuf file_{0x20000};
};

// What the callbacks of a job share; only read while it runs.
struct Job_Sources {
  std::vector<std::string> paths;
  std::string list_path;
};

class Callback : public MTF::IBackup_Callback {
 public:
  explicit Callback(std::shared_ptr<const Job_Sources> sources) : sources_(sources) {}

  char separator() override { return ::separator; }
  bool lstat(const char* path, MTF::Callback_Stat& out) override {
    _stat64 stat;
    errno = platform::stat_link(path, stat);
    if (errno != 0) return false;
    out.gid = static_cast<unsigned int>(stat.st_gid);
    out.uid = static_cast<unsigned int>(stat.st_uid);
    out.mode = stat.st_mode;
    out.dev = stat.st_dev;
    out.ino = stat.st_ino;
    out.nlink = stat.st_nlink;
    out.rdev = stat.st_rdev;
    out.size = static_cast<unsigned long long>(stat.st_size);
    out.blocks = (out.size + 511) / 512;
    out.atime = stat.st_atime;
    out.mtime = stat.st_mtime;
    out.ctime = stat.st_ctime;
    out.owner = names_.user(out.uid);
    out.group = names_.group(out.gid);
    return true;
  }
  bool exists(const char* path) override {
    _stat64 stat;
    return platform::stat_link(path, stat) == 0;
  }
  MTF::Ref_Ptr<MTF::IFile_Reader> create_file_reader() override {
    return MTF::Ref_Ptr<MTF::IFile_Reader>(new Reader);
  }
  MTF::Ref_Ptr<MTF::ISrc_Lister> create_source_lister(const std::list<std::string>*,
                                                      unsigned short seq, MTF::Event_Handler*,
                                                      const MTF::IFilter*) override {
    return MTF::Ref_Ptr<MTF::ISrc_Lister>(new Lister(sources_->paths, seq, sources_->list_path));
  }
  bool read_dir(const char*, std::list<oxbase::Directory_Entry_T<char>>&) override {
    return false;  // what is saved is what the list names
  }
  bool link_target(const char* path, std::string& target) override {
    std::error_code error;
    target = std::filesystem::read_symlink(platform::display_path(path), error).native();
    return !error;
  }

 private:
  std::shared_ptr<const Job_Sources> sources_;
  MTF::ID_Mapper names_;
};

struct Callback_Factory : MTF::IBackup_Callback_Factory {
  explicit Callback_Factory(std::shared_ptr<const Job_Sources> s) : sources(s) {}
  MTF::Ref_Ptr<MTF::IBackup_Callback> create() override {
    return MTF::Ref_Ptr<MTF::IBackup_Callback>(new Callback(sources));
  }
  std::shared_ptr<const Job_Sources> sources;
};

// The paths in the order in which a walk would come to them.
bool read_names(std::istream& in, char end, std::vector<std::string>& out) {
  for (std::string name; std::getline(in, name, end);) {
    std::string path;
    if (name.empty()) continue;
    if (!platform::system_path(name, path)) {
      std::cerr << "not an absolute path: " << name << std::endl;
      return false;
    }
    if (path.find(separator) != std::string::npos) out.push_back(std::move(path));
  }
  std::sort(out.begin(), out.end(), oxbase::path_less);
  out.erase(std::unique(out.begin(), out.end()), out.end());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);  // or each byte of the names costs a call
  std::vector<std::string> words(argv + 1, argv + argc);
  const bool nul = !words.empty() && words[0] == "-0";
  if (nul) words.erase(words.begin());
  if (words.size() < 2 || words.size() > 3) {
    std::cerr << "usage: lister_host [-0] EXISTING_DIRECTORY NAME [CHANNELS]\n";
    return 2;
  }
  auto sources = std::make_shared<Job_Sources>();
  sources->list_path = words[0] + "/" + words[1] + ".list";
  if (!read_names(std::cin, nul ? '\0' : '\n', sources->paths)) return 2;
  MTF::Metadata metadata;
  MTF::Backup job(MTF::Ref_Ptr<MTF::Event_Handler>(new Events), metadata, nullptr);
  job.add_source("/");
  job.save_links(true);
  MTF::Job_Settings settings;
  settings.minor_resource_id = words[1].c_str();
  if (words.size() == 3) settings.channels = std::strtoull(words[2].c_str(), nullptr, 10);
  settings.channel_factory = MTF::Ref_Ptr<MTF::Channel_Factory>(new Storage_Factory(words[0]));
  settings.callback_factory =
      MTF::Ref_Ptr<MTF::IBackup_Callback_Factory>(new Callback_Factory(sources));
  const bool done = job.init(settings) && job.full();
  const bool whole = job.err_code() == 0;
  job.clean();
  if (!done) job.remove_storage_file();
  return done && whole ? 0 : 1;
}
