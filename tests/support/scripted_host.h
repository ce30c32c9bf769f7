// A host whose sources and mistakes a test writes down.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "mtf/catalog/catalog_helper.h"
#include "mtf/writer/ibackup_callback.h"

namespace test_support {

// The tree, and what is asked of it. A hook that is set takes the place of the tree's answer.
struct Script {
  struct Node {
    MTF::Callback_Stat stat;
    std::string content;
    std::string target;  // of a symbolic link; empty where the host can't tell
  };
  using Entries = std::list<oxbase::Directory_Entry_T<char>>;

  // Full paths, such as `X:\d\f`.
  MTF::Callback_Stat& dir(const std::string& path);
  MTF::Callback_Stat& file(const std::string& path, const std::string& content);
  const Node* find(std::string path) const;

  // Notes a call. `calls` gives those that begin with `text`.
  void note(const std::string& call);
  std::vector<std::string> calls(const std::string& text) const;

  char separator = '\\';
  std::map<std::string, Node> nodes;
  std::function<bool(const std::string&, Entries&)> on_read_dir;
  std::function<int(const std::string& path)> on_open;
  std::function<int(MTF::Buffer&, const std::string& content, std::size_t& at)> on_read;
  std::function<int()> on_close;
  std::function<bool(MTF::File_Blk&, unsigned long long&, MTF::Callback_Stat&)> on_file_blk;
  std::function<bool(const MTF::source_entry&)> on_begin;
  std::function<bool(const MTF::source_entry&, bool)> on_end;
  std::function<MTF::ISrc_Lister*()> lister;
  std::function<unsigned long long()> per_percent;
  int callbacks = 100;       // how many callbacks the factory makes before it gives null
  bool gives_reader = true;  // whether a callback makes a file reader

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
};

MTF::Ref_Ptr<MTF::IBackup_Callback_Factory> scripted_factory(std::shared_ptr<Script> script);

// Gives blocks one after the other, as views of bytes that the next call overwrites or as blocks of
// their own, and fails behind the last one.
class Block_Lister : public MTF::ISrc_Lister {
 public:
  Block_Lister(std::vector<std::string> blocks, bool views) : blocks_(blocks), views_(views) {}
  using MTF::ISrc_Lister::next;
  bool next(MTF::Cat_Blk& block) override;

 private:
  std::vector<std::string> blocks_;
  bool views_;
  std::size_t at_ = 0;
  std::string view_;
};

// What a directory holds, as a host lists it.
Script::Entries::value_type dir_entry(const std::string& name, unsigned mode);

// Blocks as a lister gives them; a directory's `name` has backslashes and one at its end.
std::string vol_block(const std::string& name);
std::string dir_block(std::string name);
std::string file_block(const std::string& name, unsigned long long size = 0);
std::string end_block();

}  // namespace test_support
