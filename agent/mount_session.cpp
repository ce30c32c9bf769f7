#include "agent/mount_session.h"

#include <fuse3/fuse_lowlevel.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "agent/exit_code.h"
#include "agent/mount_files.h"
#include "agent/text.h"
#include "platform/host.h"
#include "platform/mount_point.h"

namespace agent {
namespace {

constexpr double attribute_timeout = 1000000;  // seconds; the root's are asked for by name
constexpr unsigned int longest_name = 255;
constexpr unsigned int most_answering_threads = 16;
constexpr std::size_t longest_line = 1024;

Console* log_console = nullptr;  // for libfuse, which logs without a context

void log_line(fuse_log_level, const char* format, va_list arguments) {
  char line[longest_line];
  std::vsnprintf(line, sizeof line, format, arguments);
  std::string text = line;
  while (!text.empty() && text.back() == '\n') text.pop_back();
  if (log_console != nullptr) log_console->note("error: " + escape_controls(text));
}

// What the handlers of requests share.
struct Session {
  Mount_Files& files;
  fuse_session* session = nullptr;
  std::mutex lock{};  // guards what follows
  // Files that are still open when the mount ends are closed with it.
  std::unordered_map<const Mount_File*, std::unique_ptr<Mount_File>> open_files{};

  void keep(std::unique_ptr<Mount_File> file) {
    const std::lock_guard<std::mutex> locked(lock);
    const Mount_File* const key = file.get();
    open_files[key] = std::move(file);
  }

  void drop(const Mount_File& file) {
    const std::lock_guard<std::mutex> locked(lock);
    open_files.erase(&file);
  }
};

Session& session_of(fuse_req_t request) {
  return *static_cast<Session*>(fuse_req_userdata(request));
}

Mount_Files& files_of(fuse_req_t request) {
  return session_of(request).files;
}

// Asked by a call that takes long: the program that waits may be killed, and the mount may end.
std::function<bool()> go_on_of(fuse_req_t request) {
  fuse_session* session = session_of(request).session;
  return [=] { return fuse_req_interrupted(request) == 0 && fuse_session_exited(session) == 0; };
}

void on_init(void*, fuse_conn_info* connection) {
  for (const unsigned int wanted : {FUSE_CAP_POSIX_ACL, FUSE_CAP_CACHE_SYMLINKS}) {
    connection->want |= connection->capable & wanted;
  }
}

void on_lookup(fuse_req_t request, fuse_ino_t parent, const char* name) {
  fuse_entry_param entry;
  const int error = files_of(request).lookup(parent, name, entry);
  error == 0 ? fuse_reply_entry(request, &entry) : fuse_reply_err(request, error);
}

// An inode is only a number, so there is nothing to free.
void on_forget(fuse_req_t request, fuse_ino_t, uint64_t) {
  fuse_reply_none(request);
}

void on_forget_multi(fuse_req_t request, std::size_t, fuse_forget_data*) {
  fuse_reply_none(request);
}

void on_getattr(fuse_req_t request, fuse_ino_t inode, fuse_file_info*) {
  struct stat stat;
  const int error = files_of(request).attributes(inode, stat);
  error == 0 ? fuse_reply_attr(request, &stat, inode == FUSE_ROOT_ID ? 0 : attribute_timeout)
             : fuse_reply_err(request, error);
}

void on_readlink(fuse_req_t request, fuse_ino_t inode) {
  std::string target;
  const int error = files_of(request).target(inode, target);
  error == 0 ? fuse_reply_readlink(request, target.c_str()) : fuse_reply_err(request, error);
}

void on_open(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info) {
  auto file = std::make_unique<Mount_File>();
  const int error = files_of(request).open(inode, *file);
  if (error != 0) {
    fuse_reply_err(request, error);
    return;
  }
  info->keep_cache = 1;
  const Mount_File& opened = *file;
  info->fh = reinterpret_cast<std::uintptr_t>(&opened);
  Session& session = session_of(request);
  // Noted ahead of the answer: the kernel may close it as soon as it has that.
  session.keep(std::move(file));
  if (fuse_reply_open(request, info) != 0) session.drop(opened);
}

const Mount_File& file_of(const fuse_file_info* info) {
  return *reinterpret_cast<const Mount_File*>(info->fh);
}

void on_read(fuse_req_t request, fuse_ino_t, std::size_t size, off_t offset, fuse_file_info* info) {
  thread_local std::vector<char> bytes;
  if (bytes.size() < size) bytes.resize(size);
  std::size_t got = 0;
  const int error =
      files_of(request).read(file_of(info), offset, bytes.data(), size, go_on_of(request), got);
  error == 0 ? fuse_reply_buf(request, bytes.data(), got) : fuse_reply_err(request, error);
}

void on_lseek(fuse_req_t request, fuse_ino_t, off_t offset, int whence, fuse_file_info* info) {
  off_t found = 0;
  const bool hole = whence == SEEK_HOLE;
  const int error =
      hole || whence == SEEK_DATA
          ? files_of(request).seek(file_of(info), offset, hole, go_on_of(request), found)
          : EINVAL;
  error == 0 ? fuse_reply_lseek(request, found) : fuse_reply_err(request, error);
}

void on_release(fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
  session_of(request).drop(file_of(info));
  fuse_reply_err(request, 0);
}

// Fills the answer to a request for entries of a directory.
class Entry_Buffer {
 public:
  Entry_Buffer(fuse_req_t request, std::size_t size, bool plus)
      : request_(request), bytes_(size), plus_(plus) {}

  bool plus() const { return plus_; }

  // False if there is no room left. `next` is the offset behind the entry.
  bool add(const std::string& name, const fuse_entry_param& entry, off_t next) {
    char* at = bytes_.data() + used_;
    const std::size_t room = bytes_.size() - used_;
    const std::size_t size =
        plus_ ? fuse_add_direntry_plus(request_, at, room, name.c_str(), &entry, next)
              : fuse_add_direntry(request_, at, room, name.c_str(), &entry.attr, next);
    if (size > room) return false;
    used_ += size;
    return true;
  }

  // `.` and `..`, of which the kernel wants the numbers alone.
  bool add_dots(fuse_ino_t own, fuse_ino_t parent, off_t offset) {
    fuse_entry_param entry{};
    entry.attr.st_mode = S_IFDIR;
    entry.attr.st_ino = own;
    if (offset < 1 && !add(".", entry, 1)) return false;
    entry.attr.st_ino = parent;
    return offset >= 2 || add("..", entry, 2);
  }

  void reply() { fuse_reply_buf(request_, bytes_.data(), used_); }

 private:
  fuse_req_t request_;
  std::vector<char> bytes_;
  std::size_t used_ = 0;
  const bool plus_;
};

constexpr off_t dots = 2;

// An open root directory shows what was there when it was opened.
using Open_Root = std::vector<Root_Entry>;

void on_opendir(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info) {
  std::unique_ptr<Open_Root> root;
  if (inode == FUSE_ROOT_ID) {
    root = std::make_unique<Open_Root>(files_of(request).root());
  } else {
    info->cache_readdir = info->keep_cache = 1;
  }
  info->fh = reinterpret_cast<std::uintptr_t>(root.get());
  if (fuse_reply_open(request, info) == 0) root.release();
}

void on_releasedir(fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
  delete reinterpret_cast<Open_Root*>(info->fh);
  fuse_reply_err(request, 0);
}

void read_root(Mount_Files& files, const Open_Root& root, off_t offset, Entry_Buffer& buffer) {
  if (!buffer.add_dots(FUSE_ROOT_ID, FUSE_ROOT_ID, offset)) return;
  const auto first = static_cast<std::size_t>(offset < dots ? 0 : offset - dots);
  for (std::size_t i = first; i < root.size(); ++i) {
    fuse_entry_param entry;
    files.describe(root[i], entry);
    if (!buffer.add(root[i].name, entry, static_cast<off_t>(i) + dots + 1)) return;
  }
}

// An entry that can't be read is still listed; opening it gives the error.
void read_job_directory(Mount_Files& files, const Mount_Place& directory, fuse_ino_t inode,
                        off_t offset, Entry_Buffer& buffer) {
  if (!buffer.add_dots(inode, files.parent(directory), offset)) return;
  const MTF::View_Tree& tree = directory.view->tree();
  Mount_Place place = directory;
  for (auto at = static_cast<unsigned int>(offset < dots ? 0 : offset - dots);; ++at) {
    place.number = tree.child(directory.number, at);
    if (place.number == MTF::View_Tree::none) return;
    fuse_entry_param entry;
    if (!buffer.plus() || files.describe(place, entry) != 0) files.name(place, entry);
    if (!buffer.add(std::string(tree.name(place.number)), entry, at + dots + 1)) return;
  }
}

void read_directory(fuse_req_t request, fuse_ino_t inode, off_t offset, fuse_file_info* info,
                    Entry_Buffer&& buffer) {
  Mount_Files& files = files_of(request);
  if (inode == FUSE_ROOT_ID) {
    read_root(files, *reinterpret_cast<const Open_Root*>(info->fh), offset, buffer);
    buffer.reply();
    return;
  }
  Mount_Place directory;
  const int error = files.find(inode, directory);
  if (error != 0) {
    fuse_reply_err(request, error);
    return;
  }
  read_job_directory(files, directory, inode, offset, buffer);
  buffer.reply();
}

void on_readdir(fuse_req_t request, fuse_ino_t inode, std::size_t size, off_t offset,
                fuse_file_info* info) {
  read_directory(request, inode, offset, info, Entry_Buffer(request, size, false));
}

void on_readdirplus(fuse_req_t request, fuse_ino_t inode, std::size_t size, off_t offset,
                    fuse_file_info* info) {
  read_directory(request, inode, offset, info, Entry_Buffer(request, size, true));
}

// Answers with `value`, or with its length where `size` is 0.
void reply_sized(fuse_req_t request, const std::string& value, std::size_t size) {
  if (size == 0) {
    fuse_reply_xattr(request, value.size());
  } else if (size < value.size()) {
    fuse_reply_err(request, ERANGE);
  } else {
    fuse_reply_buf(request, value.data(), value.size());
  }
}

void on_getxattr(fuse_req_t request, fuse_ino_t inode, const char* name, std::size_t size) {
  std::shared_ptr<const MTF::View_Attributes> attributes;
  int error = files_of(request).extended(inode, attributes);
  if (error == 0) error = ENODATA;
  if (attributes != nullptr) {
    for (const auto& each : attributes->extended) {
      if (each.first == name) return reply_sized(request, each.second, size);
    }
  }
  fuse_reply_err(request, error);
}

void on_listxattr(fuse_req_t request, fuse_ino_t inode, std::size_t size) {
  std::shared_ptr<const MTF::View_Attributes> attributes;
  const int error = files_of(request).extended(inode, attributes);
  if (error != 0) {
    fuse_reply_err(request, error);
    return;
  }
  std::string names;
  if (attributes != nullptr) {
    for (const auto& each : attributes->extended) names += each.first + '\0';
  }
  reply_sized(request, names, size);
}

void on_statfs(fuse_req_t request, fuse_ino_t) {
  struct statvfs stat {};
  stat.f_bsize = stat.f_frsize = 4096;
  stat.f_namemax = longest_name;
  fuse_reply_statfs(request, &stat);
}

fuse_lowlevel_ops operations() {
  fuse_lowlevel_ops all{};
  all.init = on_init;
  all.lookup = on_lookup;
  all.forget = on_forget;
  all.forget_multi = on_forget_multi;
  all.getattr = on_getattr;
  all.readlink = on_readlink;
  all.open = on_open;
  all.read = on_read;
  all.lseek = on_lseek;
  all.release = on_release;
  all.opendir = on_opendir;
  all.readdir = on_readdir;
  all.readdirplus = on_readdirplus;
  all.releasedir = on_releasedir;
  all.getxattr = on_getxattr;
  all.listxattr = on_listxattr;
  all.statfs = on_statfs;
  return all;
}

// Whoever mounts for himself alone can read the pieces anyway, so no mode keeps him from a file;
// where others come in, and for root, modes and ACLs hold as usual.
std::string mount_options(const Mount_Options& options) {
  std::string text = "ro,nosuid,nodev,subtype=mtf,fsname=" + options.stem;
  if (options.allow_other) text += ",allow_other";
  if (options.allow_other || platform::current_uid() == 0) text += ",default_permissions";
  return text;
}

// Serves requests until the mount is gone or a signal comes; false if neither was the reason.
bool serve(fuse_session* session, const std::string& directory, Console& console) {
  const std::unique_ptr<fuse_loop_config, void (*)(fuse_loop_config*)> config(
      fuse_loop_cfg_create(), fuse_loop_cfg_destroy);
  fuse_loop_cfg_set_max_threads(config.get(), most_answering_threads);
  const int ended = fuse_session_loop_mt(session, config.get());
  // Behind a signal, whose number this is, the mount is still there.
  if (ended > 0 && platform::is_in_use(directory)) {
    console.note("warning: " + escape_name(directory) +
                 " is in use: it is gone from its place, and what is open in it gives errors");
  }
  fuse_session_unmount(session);
  return ended >= 0;
}

}  // namespace

int run_mount_session(const Mount_Options& options, Mounted_Jobs& jobs, Console& console) {
  log_console = &console;
  fuse_set_log_func(log_line);
  Mount_Files files(jobs, console);
  Session shared{files};
  std::string words[] = {"mtf-agent", "-o", mount_options(options)};
  char* arguments[] = {&words[0][0], &words[1][0], &words[2][0], nullptr};
  fuse_args parsed = FUSE_ARGS_INIT(3, arguments);
  const fuse_lowlevel_ops all = operations();
  const std::unique_ptr<fuse_session, void (*)(fuse_session*)> session(
      fuse_session_new(&parsed, &all, sizeof all, &shared), fuse_session_destroy);
  fuse_opt_free_args(&parsed);
  if (session == nullptr) return exit_failed;
  shared.session = session.get();
  const std::string& directory = options.directory;
  if (fuse_set_signal_handlers(session.get()) != 0) return exit_failed;
  bool done = fuse_session_mount(session.get(), directory.c_str()) == 0;
  if (done) {
    const char* const command = platform::current_uid() == 0 ? "umount " : "fusermount3 -u ";
    console.line_now("mounted " + count_text(jobs.count(), "job") + " of '" + options.stem +
                     "' at " + escape_name(directory) + "; Ctrl-C or '" + command +
                     escape_name(directory) + "' ends it");
    done = serve(session.get(), directory, console);
  } else {
    console.note("error: can't mount at " + escape_name(directory));
  }
  fuse_remove_signal_handlers(session.get());
  return done ? exit_done : exit_failed;
}

}  // namespace agent
