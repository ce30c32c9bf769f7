#include "mtf/writer/node_source.h"

#include <ace/Log_Msg.h>

#include <cerrno>
#include <new>

#include "mtf/writer/callback_block.h"
#include "mtf/writer/file_type.h"
#include "mtf/writer/set_file_blk_win.h"
#include "mtf/writer/stat_stream.h"
#include "platform/native_path.h"
#include "platform/node.h"
#include "services/file_path.h"

namespace MTF {
namespace {

// The path of `path` under its shadow volume, where its volume has one.
std::string shadowed(const Backup_Context& ctx, const std::string& path) {
  std::string vol;
  std::string dir;
  if (ctx.volume_map == nullptr || !MTF_FS::path_component(path, '\\', vol, dir)) return path;
  const auto shadow = ctx.volume_map->find(vol);
  oxbase::Path_T<char> out('\\', false);
  const bool has_one = shadow != ctx.volume_map->end() && !shadow->second.empty() &&
                       MTF_FS::replace_volume(path, shadow->second, out);
  return has_one ? out.str() : path;
}

class Local_Node_Source : public Node_Source {
 public:
  Local_Node_Source()
      : reader_([this](const std::string& name, const std::string& why) {
          ACE_ERROR((LM_WARNING, ACE_TEXT("Extended attribute '%s' of '%s' is left out: %s\n"),
                     name.empty() ? "*" : name.c_str(), platform::display_path(path_).c_str(),
                     why.c_str()));
        }) {}

  bool has_target(const std::string&) override { return true; }

  bool look(const Backup_Context& ctx, const std::string& path, const std::string&,
            bool with_attributes) override {
    path_ = shadowed(ctx, path);
    if (!reader_.read(path_, with_attributes, node_)) return false;
    type_ = file_type(node_.stat, 0, true);
    size_ = static_cast<unsigned long long>(node_.stat.st_size);
    space_ = node_.allocated;
    target_.swap(node_.target);
    attributes_.swap(node_.attributes);
    return true;
  }

  bool is_same(const Backup_Context& ctx, const std::string& path) override {
    return reader_.read(shadowed(ctx, path), false, other_) &&
           other_.stat.st_ino == node_.stat.st_ino;
  }

  bool fill(Backup_Context& ctx, const std::string& name, File_Shaped_Blk& blk) override {
    unsigned long long space = 0;
    int error = 0;
    return set_file_blk_win(blk, wide_path_, space, error, &ctx, name) > 0;
  }

  bool write_stat(Backup_Context& ctx, const Ref_Ptr<Buffer>& buf, IWriter& writer) override {
    return write_unix_stat(ctx, buf, node_.stat, writer);
  }

 private:
  platform::Node_Reader reader_;
  platform::Node node_;
  platform::Node other_;
  std::string path_;
  std::wstring wide_path_;
};

class Callback_Node_Source : public Node_Source {
 public:
  explicit Callback_Node_Source(Ref_Ptr<IBackup_Callback> callback) : callback_(callback) {}

  bool has_target(const std::string& path) override {
    target_.clear();
    return callback_->link_target(path.c_str(), target_) && !target_.empty() &&
           target_.find('\0') == std::string::npos;
  }

  bool look(const Backup_Context&, const std::string& path, const std::string&, bool) override {
    stat_ = Callback_Stat();
    if (!callback_->lstat(path.c_str(), stat_)) {
      ACE_ERROR_RETURN((LM_WARNING, ACE_TEXT("Failed to lstat file, path='%s'\n"), path.c_str()),
                       false);
    }
    _stat64 stat;
    stat.st_mode = static_cast<unsigned int>(stat_.mode);
    type_ = file_type(stat, 0, true);
    size_ = stat_.size;
    space_ = space_of(stat_);
    return true;
  }

  // Two names belong to one file if the host says so.
  bool is_same(const Backup_Context&, const std::string&) override { return true; }

  bool fill(Backup_Context&, const std::string&, File_Shaped_Blk& blk) override {
    set_size_and_dates(blk, stat_);
    return true;
  }

  bool write_stat(Backup_Context& ctx, const Ref_Ptr<Buffer>& buf, IWriter& writer) override {
    return write_callback_stat(ctx, buf, stat_, writer);
  }

 private:
  Ref_Ptr<IBackup_Callback> callback_;
  Callback_Stat stat_;
};

template <class Source, class... Args>
std::unique_ptr<Node_Source> make(Args... args) {
  std::unique_ptr<Node_Source> source(new (std::nothrow) Source(args...));
  if (source == nullptr) errno = ENOMEM;
  return source;
}

}  // namespace

std::unique_ptr<Node_Source> make_local_node_source() {
  return make<Local_Node_Source>();
}

std::unique_ptr<Node_Source> make_callback_node_source(Ref_Ptr<IBackup_Callback> callback) {
  return make<Callback_Node_Source>(callback);
}

}  // namespace MTF
