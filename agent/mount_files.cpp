#include "agent/mount_files.h"

#include <cerrno>

#include "agent/text.h"
#include "platform/host.h"
#include "services/text.h"

namespace agent {
namespace {

using MTF::View_Tree;

constexpr double root_timeout = 1;        // seconds; jobs come and go
constexpr double tree_timeout = 1000000;  // a job never changes
constexpr unsigned int preferred_read = 0x20000;
constexpr unsigned int stat_unit = 512;
constexpr unsigned int directory_mode = 0755;  // of one of which nothing is known
constexpr unsigned int file_mode = 0600;
constexpr unsigned int link_mode = 0777;
constexpr std::size_t most_told = 10000;
constexpr unsigned int seq_shift = 32;

// The mode of an entry of which the catalogs alone are known; without a type where they don't tell.
unsigned int mode_of(const MTF::View_Node& node) {
  if (node.is_directory) return S_IFDIR | directory_mode;
  if (node.type == MTF::block_slnk) return S_IFLNK | link_mode;
  return node.type == MTF::block_file ? S_IFREG | file_mode : file_mode;
}

fuse_ino_t inode_of(unsigned int seq, View_Tree::Number number) {
  if (number == View_Tree::root) return job_key(seq);
  return static_cast<fuse_ino_t>(seq) << seq_shift | number;
}

}  // namespace

bool Mount_Files::find_root(fuse_ino_t inode, Root_Entry& out) {
  if (inode != FUSE_ROOT_ID) return jobs_.find(inode, out);
  out = {"", jobs_.newest(), false, FUSE_ROOT_ID};
  return true;
}

int Mount_Files::find(fuse_ino_t inode, Mount_Place& out) {
  out.seq = static_cast<unsigned int>(inode >> seq_shift);
  out.number = static_cast<View_Tree::Number>(inode);
  if (out.seq == 0) {
    Root_Entry entry;
    if (!jobs_.find(inode, entry)) return ENOENT;
    if (entry.is_link) return EINVAL;
    out.seq = entry.seq;
    out.number = View_Tree::root;
  }
  std::string why;
  out.view = jobs_.view(out.seq, why);
  if (out.view == nullptr || out.number >= out.view->tree().size()) return ESTALE;
  return 0;
}

fuse_ino_t Mount_Files::parent(const Mount_Place& place) const {
  return place.number == View_Tree::root ? FUSE_ROOT_ID : inode_of(place.seq, place.node().parent);
}

// Tells once why an entry can't be read.
int Mount_Files::fail(const Mount_Place& place, const std::string& why) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const fuse_ino_t inode = inode_of(place.seq, place.number);
    if (told_.size() >= most_told || !told_.insert(inode).second) return EIO;
  }
  const std::string path = std::to_string(place.seq) + place.view->tree().path(place.number);
  console_.note("error: " + escape_name(path) + ": " + escape_controls(why));
  return EIO;
}

// Doesn't open the job: only who enters its directory needs that.
void Mount_Files::describe(const Root_Entry& entry, fuse_entry_param& out) {
  out = {};
  out.ino = out.attr.st_ino = entry.key;
  out.attr_timeout = out.entry_timeout = root_timeout;
  out.attr.st_mode = entry.is_link ? S_IFLNK | link_mode : S_IFDIR | directory_mode;
  out.attr.st_nlink = 1;
  out.attr.st_uid = platform::current_uid();
  if (entry.is_link) out.attr.st_size = static_cast<off_t>(std::to_string(entry.seq).size());
  out.attr.st_mtime = out.attr.st_atime = out.attr.st_ctime = jobs_.time_of(entry.seq);
}

void Mount_Files::name(const Mount_Place& place, fuse_entry_param& out) {
  out = {};
  const MTF::View_Tree& tree = place.view->tree();
  const View_Tree::Number content = tree.content_of(place.number);
  out.attr.st_ino = inode_of(place.seq, content);
  out.attr.st_mode = mode_of(tree.node(content));
}

int Mount_Files::describe(const Mount_Place& place, fuse_entry_param& out) {
  name(place, out);
  std::string why;
  const auto attributes = place.view->attributes(place.number, why);
  if (attributes == nullptr) return fail(place, why);
  struct stat& stat = out.attr;
  out.ino = stat.st_ino;
  out.attr_timeout = out.entry_timeout = tree_timeout;
  stat.st_nlink = attributes->names;
  stat.st_uid = platform::current_uid();
  stat.st_mode |= attributes->node_type;
  stat.st_rdev = attributes->rdev;
  if (attributes->owner) {
    stat.st_mode = (stat.st_mode & S_IFMT) | attributes->owner->mode;
    stat.st_uid = static_cast<uid_t>(attributes->owner->uid);
    stat.st_gid = static_cast<gid_t>(attributes->owner->gid);
  }
  stat.st_size = static_cast<off_t>(attributes->size);
  stat.st_blocks = static_cast<blkcnt_t>(attributes->space / stat_unit);
  stat.st_blksize = preferred_read;
  // No catalog describes this directory, so it gets the time of its job.
  const long long job_time = place.node().seq == 0 ? jobs_.time_of(place.seq) : 0;
  stat.st_mtime = stat.st_ctime = attributes->mtime + job_time;
  stat.st_atime = attributes->atime + job_time;
  return 0;
}

int Mount_Files::lookup(fuse_ino_t directory, const std::string& name, fuse_entry_param& out) {
  out = {};
  if (directory == FUSE_ROOT_ID) {
    Root_Entry entry;
    if (!jobs_.find(name, entry)) return ENOENT;
    describe(entry, out);
    return 0;
  }
  Mount_Place place;
  const int error = find(directory, place);
  if (error != 0) return error;
  place.number = place.view->tree().find(place.number, name);
  if (place.number != View_Tree::none) return describe(place, out);
  out.entry_timeout = tree_timeout;
  return 0;
}

int Mount_Files::attributes(fuse_ino_t inode, struct stat& out) {
  fuse_entry_param entry;
  int error = 0;
  if (inode >> seq_shift == 0) {
    Root_Entry root;
    if (!find_root(inode, root)) return ENOENT;
    describe(root, entry);
  } else {
    Mount_Place place;
    error = find(inode, place);
    if (error == 0) error = describe(place, entry);
  }
  if (error == 0) out = entry.attr;
  return error;
}

int Mount_Files::target(fuse_ino_t inode, std::string& out) {
  if (inode >> seq_shift == 0) {
    Root_Entry entry;
    if (!find_root(inode, entry) || !entry.is_link) return EINVAL;
    out = std::to_string(entry.seq);
    return 0;
  }
  std::shared_ptr<const MTF::View_Attributes> attributes;
  const int error = extended(inode, attributes);
  if (error != 0) return error;
  out = attributes->target;
  return out.empty() ? EINVAL : 0;
}

int Mount_Files::extended(fuse_ino_t inode, std::shared_ptr<const MTF::View_Attributes>& out) {
  out = nullptr;
  if (inode >> seq_shift == 0) return 0;
  Mount_Place place;
  const int error = find(inode, place);
  if (error != 0) return error;
  std::string why;
  out = place.view->attributes(place.number, why);
  return out == nullptr ? fail(place, why) : 0;
}

int Mount_Files::open(fuse_ino_t inode, Mount_File& out) {
  const int error = find(inode, out.place);
  if (error != 0) return error;
  std::string why;
  out.file = out.place.view->open_file(out.place.number, why);
  return out.file == nullptr ? fail(out.place, why) : 0;
}

int Mount_Files::read(const Mount_File& file, off_t offset, char* data, std::size_t size,
                      const std::function<bool()>& go_on, std::size_t& got) {
  std::string why;
  const long long result =
      file.file->read(static_cast<unsigned long long>(offset), data, size, go_on, why);
  if (result < 0) return why.empty() ? EINTR : fail(file.place, why);
  got = static_cast<std::size_t>(result);
  return 0;
}

int Mount_Files::seek(const Mount_File& file, off_t offset, bool hole,
                      const std::function<bool()>& go_on, off_t& found) {
  const unsigned long long size = file.place.node().size;
  if (offset < 0 || static_cast<unsigned long long>(offset) >= size) return ENXIO;
  unsigned long long out = 0;
  std::string why;
  if (!file.file->seek(static_cast<unsigned long long>(offset), hole, go_on, out, why)) {
    return why.empty() ? EINTR : fail(file.place, why);
  }
  found = static_cast<off_t>(out);
  return out == size && !hole ? ENXIO : 0;
}

}  // namespace agent
