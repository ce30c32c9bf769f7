#include "tests/support/scripted_host.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace test_support {
namespace {

std::string without_separator(std::string path) {
  while (!path.empty() && path.back() == '\\') path.pop_back();
  return path;
}

class Reader : public MTF::IFile_Reader {
 public:
  explicit Reader(std::shared_ptr<Script> script) : script_(script) {}

  int open(const char* path) override {
    script_->note(std::string("open ") + path);
    const int result = script_->on_open ? script_->on_open(path) : 0;
    if (result != 0) return result;
    const Script::Node* node = script_->find(path);
    if (node == nullptr) return 1;
    content_ = node->content;
    at_ = 0;
    open_ = true;
    return 0;
  }
  bool is_open() override { return open_; }
  int read(MTF::Buffer& data) override {
    script_->note("read");
    if (script_->on_read) return script_->on_read(data, content_, at_);
    const std::size_t n = std::min<std::size_t>(data.capacity(), content_.size() - at_);
    std::memcpy(data.data(), content_.data() + at_, n);
    data.size(static_cast<unsigned int>(n));
    at_ += n;
    return 0;
  }
  int close() override {
    script_->note("close");
    open_ = false;
    return script_->on_close ? script_->on_close() : 0;
  }
  bool handle_file_blk(MTF::File_Blk& blk, unsigned long long& space,
                       MTF::Callback_Stat& stat) override {
    return script_->on_file_blk ? script_->on_file_blk(blk, space, stat)
                                : IFile_Reader::handle_file_blk(blk, space, stat);
  }

 private:
  std::shared_ptr<Script> script_;
  std::string content_;
  std::size_t at_ = 0;
  bool open_ = false;
};

class Callback : public MTF::IBackup_Callback {
 public:
  explicit Callback(std::shared_ptr<Script> script) : script_(script) {}

  char separator() override { return script_->separator; }
  bool lstat(const char* path, MTF::Callback_Stat& stat) override {
    script_->note(std::string("lstat ") + path);
    const Script::Node* node = script_->find(path);
    errno = ENOENT;
    if (node != nullptr) stat = node->stat;
    return node != nullptr;
  }
  bool exists(const char*) override {
    script_->note("exists");
    return false;
  }
  MTF::Ref_Ptr<MTF::IFile_Reader> create_file_reader() override {
    return MTF::Ref_Ptr<MTF::IFile_Reader>(script_->gives_reader ? new Reader(script_) : nullptr);
  }
  MTF::Ref_Ptr<MTF::ISrc_Lister> create_source_lister(const std::list<std::string>*, unsigned short,
                                                      MTF::Event_Handler*,
                                                      const MTF::IFilter*) override {
    return MTF::Ref_Ptr<MTF::ISrc_Lister>(script_->lister ? script_->lister() : nullptr);
  }
  bool read_dir(const char* path, Script::Entries& entries) override {
    script_->note(std::string("read_dir ") + path);
    if (script_->on_read_dir) return script_->on_read_dir(path, entries);
    const std::string top = without_separator(path);
    for (const auto& node : script_->nodes) {
      const std::size_t last = node.first.rfind('\\');
      if (last == std::string::npos || node.first.substr(0, last) != top) continue;
      const MTF::Callback_Stat& from = node.second.stat;
      auto found = dir_entry(node.first.substr(last + 1), static_cast<unsigned>(from.mode));
      found.stat.st_ino = from.ino;
      found.stat.st_nlink = from.nlink;
      found.stat.st_size = static_cast<long long>(from.size);
      found.stat.st_mtime = from.mtime;
      entries.push_front(found);
    }
    return true;
  }
  bool handle_source_entry_begin(const MTF::source_entry& entry) override {
    script_->note("begin " + entry.name + ' ' + entry.path);
    return script_->on_begin ? script_->on_begin(entry)
                             : IBackup_Callback::handle_source_entry_begin(entry);
  }
  bool handle_source_entry_end(const MTF::source_entry& entry, bool ok) override {
    script_->note("end " + entry.path + (ok ? " ok" : " failed"));
    return script_->on_end ? script_->on_end(entry, ok)
                           : IBackup_Callback::handle_source_entry_end(entry, ok);
  }
  bool handle_source_produce_end() override {
    script_->note("produced");
    return false;  // nobody looks
  }
  bool link_target(const char* path, std::string& target) override {
    const Script::Node* node = script_->find(path);
    return node != nullptr && !(target = node->target).empty();
  }
  unsigned long long file_count_one_percent() const override {
    return script_->per_percent ? script_->per_percent()
                                : IBackup_Callback::file_count_one_percent();
  }

 private:
  std::shared_ptr<Script> script_;
};

class Factory : public MTF::IBackup_Callback_Factory {
 public:
  explicit Factory(std::shared_ptr<Script> script) : script_(script) {}
  MTF::Ref_Ptr<MTF::IBackup_Callback> create() override {
    script_->note("create");
    return MTF::Ref_Ptr<MTF::IBackup_Callback>(script_->callbacks-- > 0 ? new Callback(script_)
                                                                        : nullptr);
  }

 private:
  std::shared_ptr<Script> script_;
};

template <class Blk, class... Rest>
std::string block_of(const std::string& name, Rest... rest) {
  Blk block;
  block.alloc_buffer(static_cast<unsigned int>(Blk::buffer_need(name.size())));
  block.set(1, name, rest...);
  return std::string(block.data(), block.hdr().length());
}

}  // namespace

MTF::Callback_Stat& Script::dir(const std::string& path) {
  MTF::Callback_Stat& stat = nodes[path].stat;
  stat.mode = 0x4000 | 0755;
  stat.nlink = 1;
  return stat;
}

MTF::Callback_Stat& Script::file(const std::string& path, const std::string& content) {
  Node& node = nodes[path];
  node.content = content;
  node.stat.mode = 0x8000 | 0644;
  node.stat.nlink = 1;
  node.stat.size = content.size();
  return node.stat;
}

const Script::Node* Script::find(std::string path) const {
  for (char& c : path) c = c == '/' ? '\\' : c;
  path.erase(
      std::unique(path.begin(), path.end(), [](char a, char b) { return a == '\\' && b == '\\'; }),
      path.end());
  path = without_separator(path);
  const auto found = nodes.find(path);
  return found != nodes.end() ? &found->second : nullptr;
}

void Script::note(const std::string& call) {
  const std::lock_guard<std::mutex> lock(mutex_);
  calls_.push_back(call);
}

std::vector<std::string> Script::calls(const std::string& text) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<std::string> out;
  for (const std::string& call : calls_) {
    if (call.rfind(text, 0) == 0) out.push_back(call);
  }
  return out;
}

MTF::Ref_Ptr<MTF::IBackup_Callback_Factory> scripted_factory(std::shared_ptr<Script> script) {
  return MTF::Ref_Ptr<MTF::IBackup_Callback_Factory>(new Factory(script));
}

bool Block_Lister::next(MTF::Cat_Blk& block) {
  std::fill(view_.begin(), view_.end(), '!');
  if (at_ == blocks_.size()) return false;
  const std::string bytes = blocks_[at_++];
  const auto size = static_cast<unsigned int>(bytes.size());
  if (views_) {
    view_ = bytes;
    block.set_buffer(&view_[0], size, false);
  } else if (block.alloc_buffer(size)) {
    std::memcpy(block.data(), bytes.data(), size);
  }
  return true;
}

Script::Entries::value_type dir_entry(const std::string& name, unsigned mode) {
  Script::Entries::value_type entry{name, {}};
  entry.stat.st_mode = mode;
  return entry;
}

std::string vol_block(const std::string& name) {
  return block_of<MTF::Cat_Vol_Blk>(name);
}

std::string dir_block(std::string name) {
  std::replace(name.begin(), name.end(), '\\', '\0');
  return block_of<MTF::Cat_Dir_Blk>(name);
}

std::string file_block(const std::string& name, unsigned long long size) {
  return block_of<MTF::Cat_File_Blk>(name, 0LL, size, static_cast<unsigned short>(0), 0ULL);
}

std::string end_block() {
  MTF::Cat_Blk block;
  block.alloc_buffer(MTF::Cat_Hdr::fixed_size);
  block.set_end();
  return std::string(block.data(), block.capacity());
}

}  // namespace test_support
