// Saves what is inside a tar, zip or cpio file without unpacking it:
//
//   archive_host [--walk] ARCHIVE EXISTING_DIRECTORY NAME [CHANNELS]
//
// The entries become those of the volume `/`. They are saved in the archive's own order, so that
// each channel reads the archive once. With --walk they are saved directory by directory, in the
// order of names; a step back in the archive then costs to read it anew.
#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "mtf/catalog/catalog_helper.h"
#include "mtf/writer/backup.h"
#include "platform/native_path.h"
#include "services/compression.h"
#include "services/json_spirit.h"

namespace {

constexpr char separator = '\\';
constexpr unsigned long long directory_mode = 0x4000;
constexpr std::size_t nowhere = ~std::size_t{0};

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

// ------------------------------------------------------------------------------- the archive
struct Free_Archive {
  void operator()(archive* a) const { archive_read_free(a); }
};
using Archive = std::unique_ptr<archive, Free_Archive>;

Archive open_archive(const std::string& path) {
  Archive a(archive_read_new());
  if (a == nullptr) return nullptr;
  archive_read_support_filter_all(a.get());
  archive_read_support_format_tar(a.get());
  archive_read_support_format_zip(a.get());
  archive_read_support_format_cpio(a.get());
  constexpr std::size_t block_size = 0x10000;
  if (archive_read_open_filename(a.get(), path.c_str(), block_size) == ARCHIVE_OK) return a;
  std::cerr << path << ": " << archive_error_string(a.get()) << std::endl;
  return nullptr;
}

struct Item {
  MTF::Callback_Stat stat;
  std::string target;             // of a symbolic link
  std::size_t data_at = nowhere;  // counted from the first header of the archive
};

// What is inside, in the form of the system's paths below the volume: `dir\name`. Made once, then
// only read, by all threads.
struct Index {
  std::string path;  // of the archive
  std::map<std::string, Item> items;
  std::map<std::string, std::vector<std::string>> children;  // names by directory
  std::vector<std::string> order;                            // paths as the archive has them

  bool make(const std::string& archive_path);
  void add(archive* a, archive_entry* entry, std::size_t at);
  void put(const std::string& name, const Item& item);
  const Item* find(std::string system_path) const;
};

void leave_out(const char* name, const char* why) {
  std::cerr << "left out: " << name << " (" << why << ")" << std::endl;
}

// False for a name that leads out of the archive.
bool to_system(const char* name, std::string& out) {
  out.clear();
  for (const char* at = name; *at != '\0';) {
    const std::string rest(at);
    const std::string part = rest.substr(0, rest.find('/'));
    at += part.size() + (part.size() < rest.size() ? 1 : 0);
    if (part == "..") return false;
    if (part.empty() || part == ".") continue;
    if (!out.empty()) out += separator;
    out += platform::system_name(part);
  }
  return !out.empty();
}

std::string parent_of(const std::string& path) {
  const std::size_t last = path.rfind(separator);
  return last == std::string::npos ? "" : path.substr(0, last);
}

std::string name_of(const std::string& path) {
  return path.substr(path.rfind(separator) + 1);
}

std::string text(const char* words) {
  return words != nullptr ? words : "";
}

// Some archives say the size of an entry only behind its data.
unsigned long long size_of(archive* a, archive_entry* entry) {
  if (archive_entry_size_is_set(entry) != 0) {
    return static_cast<unsigned long long>(archive_entry_size(entry));
  }
  std::vector<char> data(0x10000);
  unsigned long long size = 0;
  for (la_ssize_t n; (n = archive_read_data(a, data.data(), data.size())) > 0;) {
    size += static_cast<unsigned long long>(n);
  }
  return size;
}

MTF::Callback_Stat stat_of(archive* a, archive_entry* entry) {
  MTF::Callback_Stat stat;
  stat.mode = archive_entry_mode(entry);
  stat.uid = static_cast<unsigned long long>(archive_entry_uid(entry));
  stat.gid = static_cast<unsigned long long>(archive_entry_gid(entry));
  stat.owner = text(archive_entry_uname(entry));
  stat.group = text(archive_entry_gname(entry));
  stat.nlink = 1;
  stat.mtime = archive_entry_mtime(entry);
  stat.atime = archive_entry_atime_is_set(entry) != 0 ? archive_entry_atime(entry) : stat.mtime;
  stat.ctime = archive_entry_ctime_is_set(entry) != 0 ? archive_entry_ctime(entry) : stat.mtime;
  if (archive_entry_filetype(entry) == AE_IFREG) stat.size = size_of(a, entry);
  stat.rdev = static_cast<unsigned long long>(archive_entry_rdev(entry));
  stat.blocks = stat.size / 512 + (stat.size % 512 != 0 ? 1 : 0);
  return stat;
}

bool Index::make(const std::string& archive_path) {
  path = archive_path;
  const Archive a = open_archive(path);
  if (a == nullptr) return false;
  archive_entry* entry = nullptr;
  int result;
  for (std::size_t at = 0;
       (result = archive_read_next_header(a.get(), &entry)) == ARCHIVE_OK || result == ARCHIVE_WARN;
       ++at) {
    add(a.get(), entry, at);
  }
  if (result == ARCHIVE_EOF) return true;
  std::cerr << path << ": " << archive_error_string(a.get()) << std::endl;
  return false;
}

void Index::add(archive* a, archive_entry* entry, std::size_t at) {
  const char* name = archive_entry_pathname(entry);
  if (name == nullptr) name = archive_entry_pathname_utf8(entry);
  if (name == nullptr) return leave_out("an entry", "its name can't be read");
  const bool is_directory = archive_entry_filetype(entry) == AE_IFDIR;
  std::string system;
  if (!to_system(name, system)) {
    if (!is_directory) leave_out(name, "its name leads out of the archive");
    return;
  }
  Item item{stat_of(a, entry), text(archive_entry_symlink(entry)), at};
  item.stat.ino = at + 1;
  if (const char* link = archive_entry_hardlink(entry)) {
    std::string first;
    if (!to_system(link, first) || items.count(first) == 0) return leave_out(name, "broken link");
    items[first].stat.nlink = 2;  // or more: what counts is that it isn't one
    item = items[first];
  } else if (archive_entry_filetype(entry) == AE_IFSOCK) {
    return leave_out(name, "nothing can bring back a socket");
  }
  put(system, item);
}

// A later entry takes the place of an earlier one of the same name. Directories without an entry of
// their own get a plain one.
void Index::put(const std::string& name, const Item& item) {
  const bool is_new = items.find(name) == items.end();
  items[name] = item;
  if (!is_new) return;
  const std::string parent = parent_of(name);
  if (!parent.empty() && items.find(parent) == items.end()) {
    Item directory;
    directory.stat.mode = directory_mode | 0755;
    directory.stat.nlink = 1;
    directory.stat.mtime = directory.stat.atime = directory.stat.ctime = item.stat.mtime;
    put(parent, directory);
  }
  children[parent].push_back(name_of(name));
  order.push_back(name);
}

// The system's paths begin with the volume.
const Item* Index::find(std::string system_path) const {
  system_path.erase(0, system_path.find_first_not_of("/\\"));
  while (!system_path.empty() && system_path.back() == separator) system_path.pop_back();
  const auto found = items.find(system_path);
  return found != items.end() ? &found->second : nullptr;
}

bool is_directory(const Item& item) {
  return (item.stat.mode & 0xF000) == directory_mode;
}

bool is_file(const Item& item) {
  return (item.stat.mode & 0xF000) == 0x8000;
}

// ------------------------------------------------------------------------------- the sources
// Reads files as they come in the archive, and starts anew for one that has gone by.
class Reader : public MTF::IFile_Reader {
 public:
  explicit Reader(std::shared_ptr<const Index> index) : index_(index) {}

  int open(const char* path) override {
    const Item* item = index_->find(path);
    errno = ENOENT;
    if (item == nullptr || !advance(item->data_at)) return 1;
    open_ = true;
    return 0;
  }
  bool is_open() override { return open_; }
  int read(MTF::Buffer& data) override {
    la_ssize_t n;
    do n = archive_read_data(archive_.get(), data.data(), data.capacity());
    while (n == ARCHIVE_RETRY);
    if (n < 0) {  // the file counts as corrupt, the job goes on
      std::cerr << index_->path << ": " << archive_error_string(archive_.get()) << std::endl;
      return 1;
    }
    data.size(static_cast<unsigned int>(n));
    return 0;
  }
  int close() override {
    open_ = false;
    return 0;
  }

 private:
  // Moves to the data of the entry at `wanted`, of which nothing has been read.
  bool advance(std::size_t wanted) {
    if (archive_ == nullptr || next_ > wanted) {
      archive_ = open_archive(index_->path);
      next_ = 0;
    }
    archive_entry* entry = nullptr;
    while (archive_ != nullptr && next_ <= wanted) {
      const int result = archive_read_next_header(archive_.get(), &entry);
      errno = EIO;
      if (result != ARCHIVE_OK && result != ARCHIVE_WARN) archive_.reset();
      ++next_;
    }
    return archive_ != nullptr;
  }

  std::shared_ptr<const Index> index_;
  Archive archive_;
  std::size_t next_ = 0;  // entry whose header comes next
  bool open_ = false;
};

// Gives the entries in the archive's order. A file belongs to the last directory before it, so the
// directory is given again when the archive comes back to it.
class Lister : public MTF::ISrc_Lister {
 public:
  Lister(std::shared_ptr<const Index> index, unsigned short seq) : index_(index), seq_(seq) {}

  bool next(MTF::Cat_Blk& block) override {
    if (!started_) return started_ = true, volume(block);
    while (at_ < index_->order.size()) {
      const std::string& path = index_->order[at_];
      const Item& item = index_->items.at(path);
      const std::string wanted = is_directory(item) ? path : parent_of(path);
      if (wanted != current_) return wanted.empty() ? volume(block) : step(wanted, block);
      ++at_;
      if (!is_directory(item)) return entry(path, item, block);
    }
    return block.alloc_buffer(MTF::Cat_Hdr::fixed_size) && (block.set_end(), true);
  }

 private:
  bool volume(MTF::Cat_Blk& block) {
    current_.clear();
    return block.alloc_buffer(MTF::Cat_Vol_Blk::buffer_need(1)) &&
           MTF::Cat_Vol_Blk(block.data(), block.capacity()).set(seq_, "/");
  }
  // One directory on the way to `wanted`: the first that hasn't been given, or itself.
  bool step(const std::string& wanted, MTF::Cat_Blk& block) {
    std::string dir = wanted;
    for (std::size_t end = wanted.find(separator); end != std::string::npos;
         end = wanted.find(separator, end + 1)) {
      if (given_.count(wanted.substr(0, end)) != 0) continue;
      dir = wanted.substr(0, end);
      break;
    }
    given_[dir] = true;
    current_ = dir;
    std::string name = dir + separator;
    std::replace(name.begin(), name.end(), separator, '\0');
    return block.alloc_buffer(MTF::Cat_Dir_Blk::buffer_need(name.size())) &&
           MTF::Cat_Dir_Blk(block.data(), block.capacity()).set(seq_, name);
  }
  // Of a file with several names the first one is marked, and the others are further names.
  bool entry(const std::string& path, const Item& item, MTF::Cat_Blk& block) {
    const auto first = firsts_.find(item.stat.ino);
    const std::string name = name_of(path);
    if (first != firsts_.end()) {
      return put<MTF::Cat_HLnk_Blk>(name, item, first->second.size(), 0, block);
    }
    unsigned short flags = 0;
    if (item.stat.nlink > 1) {
      firsts_[item.stat.ino] = path;
      flags = MTF::cat_first_link;
    }
    if (is_file(item)) return put<MTF::Cat_File_Blk>(name, item, item.stat.size, flags, block);
    if (item.target.empty()) return put<MTF::Cat_Devb_Blk>(name, item, 0, flags, block);
    return put<MTF::Cat_SLnk_Blk>(name, item, item.target.size(), flags, block);
  }
  template <class Blk>
  bool put(const std::string& name, const Item& item, unsigned long long size, unsigned short flags,
           MTF::Cat_Blk& block) {
    return block.alloc_buffer(static_cast<unsigned int>(Blk::buffer_need(name.size()))) &&
           Blk(block.data(), block.capacity())
               .set(seq_, name, item.stat.mtime, size, flags, item.stat.ino);
  }

  std::shared_ptr<const Index> index_;
  unsigned short seq_;
  bool started_ = false;
  std::size_t at_ = 0;
  std::string current_;
  std::map<std::string, bool> given_;
  std::map<unsigned long long, std::string>
      firsts_;  // of files with several names, by their number
};

class Callback : public MTF::IBackup_Callback {
 public:
  Callback(std::shared_ptr<const Index> index, bool walk) : index_(index), walk_(walk) {}

  char separator() override { return ::separator; }
  bool lstat(const char* path, MTF::Callback_Stat& stat) override {
    const Item* item = index_->find(path);
    errno = ENOENT;
    return item != nullptr && (stat = item->stat, true);
  }
  bool exists(const char* path) override { return index_->find(path) != nullptr; }
  MTF::Ref_Ptr<MTF::IFile_Reader> create_file_reader() override {
    return MTF::Ref_Ptr<MTF::IFile_Reader>(new Reader(index_));
  }
  MTF::Ref_Ptr<MTF::ISrc_Lister> create_source_lister(const std::list<std::string>*,
                                                      unsigned short seq, MTF::Event_Handler*,
                                                      const MTF::IFilter*) override {
    return MTF::Ref_Ptr<MTF::ISrc_Lister>(walk_ ? nullptr : new Lister(index_, seq));
  }
  bool read_dir(const char* path, std::list<oxbase::Directory_Entry_T<char>>& entries) override {
    std::string dir(path);
    dir.erase(0, dir.find_first_not_of("/\\"));
    const auto found = index_->children.find(dir);
    if (found == index_->children.end()) return true;
    for (const std::string& name : found->second) {
      const MTF::Callback_Stat& from =
          index_->items.at(dir.empty() ? name : dir + ::separator + name).stat;
      oxbase::Directory_Entry_T<char> entry{name, {}};
      entry.stat.st_mode = static_cast<unsigned int>(from.mode);
      entry.stat.st_ino = from.ino;
      entry.stat.st_nlink = from.nlink;
      entry.stat.st_size = static_cast<long long>(from.size);
      entry.stat.st_mtime = from.mtime;
      entries.push_back(entry);
    }
    return true;
  }
  bool link_target(const char* path, std::string& target) override {
    const Item* item = index_->find(path);
    return item != nullptr && !(target = item->target).empty();
  }

 private:
  std::shared_ptr<const Index> index_;
  bool walk_;
};

struct Callback_Factory : MTF::IBackup_Callback_Factory {
  MTF::Ref_Ptr<MTF::IBackup_Callback> create() override {
    return MTF::Ref_Ptr<MTF::IBackup_Callback>(new Callback(index, walk));
  }
  std::shared_ptr<const Index> index;
  bool walk = false;
};

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "C.UTF-8");
  std::vector<std::string> words(argv + 1, argv + argc);
  const bool walk = !words.empty() && words[0] == "--walk";
  if (walk) words.erase(words.begin());
  if (words.size() < 3 || words.size() > 4) {
    std::cerr << "usage: archive_host [--walk] ARCHIVE EXISTING_DIRECTORY NAME [CHANNELS]\n";
    return 2;
  }
  auto index = std::make_shared<Index>();
  if (!index->make(words[0])) return 1;
  auto* callbacks = new Callback_Factory;
  callbacks->index = index;
  callbacks->walk = walk;
  MTF::Metadata metadata;
  MTF::Backup job(MTF::Ref_Ptr<MTF::Event_Handler>(new Events), metadata, nullptr);
  job.add_source("/");
  job.save_links(true);
  MTF::Job_Settings settings;
  settings.minor_resource_id = words[2].c_str();
  if (words.size() == 4) settings.channels = std::strtoull(words[3].c_str(), nullptr, 10);
  settings.channel_factory = MTF::Ref_Ptr<MTF::Channel_Factory>(new Storage_Factory(words[1]));
  settings.callback_factory = MTF::Ref_Ptr<MTF::IBackup_Callback_Factory>(callbacks);
  const bool done = job.init(settings) && job.full();
  const bool whole = job.err_code() == 0;
  job.clean();
  if (!done) job.remove_storage_file();
  return done && whole ? 0 : 1;
}
