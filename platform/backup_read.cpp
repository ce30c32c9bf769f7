#include "platform/backup_read.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/attributes.h"
#include "platform/data_extents.h"
#include "platform/little_endian.h"
#include "platform/long_path.h"
#include "platform/native_path.h"
#include "platform/security_descriptor.h"
#include "platform/source_path.h"

namespace platform {
namespace {

class File_Records : public Record_Source {
 public:
  explicit File_Records(Left_Out_Attribute left_out) : attributes_(std::move(left_out)) {}
  ~File_Records() override { close(); }

  bool open(const std::string& system_path) override;
  long long read(char* data, std::size_t size) override;
  int last_error() const override { return last_error_; }
  const File_Facts* facts() const override { return &facts_; }

 private:
  enum class Next { security, attributes, data, extent, nothing };

  int look(bool directory);
  bool next_record();
  void begin_security();
  void begin_attributes();
  void begin_data();
  bool begin_extent();
  void set_size_from_memory();
  void start_record(const WIN32_STREAM_ID& id);
  void close();

  int fd_ = -1;
  File_Facts facts_;
  Next next_ = Next::nothing;
  std::string pending_;  // bytes of the record that come from memory
  std::size_t taken_ = 0;
  Data_Extent extent_ = {0, 0};  // bytes of the record that come from the file, behind those
  Extended_Attributes attributes_;
  std::string native_;  // kept for its memory
  int last_error_ = 0;
};

bool File_Records::open(const std::string& system_path) {
  close();
  int flags = O_RDONLY | O_NONBLOCK | O_NOCTTY;
  const bool directory = !system_path.empty() && system_path.back() == '\\';
  if (directory) flags |= O_DIRECTORY;
  // Above a source there may be directories that are links.
  if (native_path(system_path, native_)) fd_ = open_source(native_, flags, directory);
  int error = fd_ < 0 ? errno : 0;
  // Attributes can be read from a directory even if it may not be listed.
  if (error == EACCES && directory) {
    fd_ = open_source(native_, O_PATH | O_DIRECTORY, directory);
    error = fd_ < 0 ? errno : 0;
  }
  if (error == 0) error = look(directory);
  last_error_ = windows_error(error);
  if (error == 0) return true;
  close();
  errno = error;
  return false;
}

int File_Records::look(bool directory) {
  const int error = examine(fd_, native_, facts_);
  if (error != 0) return error;
  if (directory ? !S_ISDIR(facts_.stat.st_mode) : !S_ISREG(facts_.stat.st_mode)) return EINVAL;
  next_ = Next::security;
  return 0;
}

void File_Records::close() {
  if (fd_ >= 0) close_quietly(fd_);
  fd_ = -1;
  next_ = Next::nothing;
  pending_.clear();
  taken_ = 0;
  extent_ = {0, 0};
}

long long File_Records::read(char* data, std::size_t size) {
  while (taken_ == pending_.size() && extent_.size == 0) {
    if (next_ == Next::nothing) return 0;
    if (!next_record()) return last_error_ = windows_error(errno), -1;
  }
  if (taken_ < pending_.size()) {
    const std::size_t n = std::min(size, pending_.size() - taken_);
    std::memcpy(data, pending_.data() + taken_, n);
    taken_ += n;
    return static_cast<long long>(n);
  }
  const auto wanted =
      std::min<unsigned long long>(size, static_cast<unsigned long long>(extent_.size));
  ssize_t n;
  do {
    n = ::pread(fd_, data, wanted, extent_.offset);
  } while (n < 0 && errno == EINTR);
  if (n < 0) return last_error_ = windows_error(errno), -1;
  extent_.offset += n;
  extent_.size -= n;
  return n;
}

bool File_Records::next_record() {
  switch (next_) {
    case Next::security:
      begin_security();
      return true;
    case Next::attributes:
      begin_attributes();
      return true;
    case Next::data:
      begin_data();
      return true;
    case Next::extent:
      return begin_extent();
    case Next::nothing:
      break;
  }
  return true;
}

void File_Records::begin_security() {
  start_record({BACKUP_SECURITY_DATA, 0, 0, 0});
  append_security_descriptor(static_cast<unsigned int>(facts_.stat.st_uid),
                             static_cast<unsigned int>(facts_.stat.st_gid), facts_.stat.st_mode,
                             pending_);
  set_size_from_memory();
  next_ = Next::attributes;
}

void File_Records::begin_attributes() {
  start_record({BACKUP_EA_DATA, 0, 0, 0});
  attributes_.append(fd_, pending_);
  if (pending_.size() == stream_id_size) pending_.clear();
  set_size_from_memory();
  next_ = S_ISREG(facts_.stat.st_mode) ? Next::data : Next::nothing;
}

// Gives the record that was just made the size of the data behind its head.
void File_Records::set_size_from_memory() {
  if (pending_.empty()) return;
  WIN32_STREAM_ID id = load_stream_id(pending_.data());
  id.Size = pending_.size() - stream_id_size;
  store_stream_id(id, &pending_[0]);
}

void File_Records::begin_data() {
  const bool sparse = has_hole(fd_, facts_.stat.st_size);
  if (sparse) {
    start_record({BACKUP_DATA, STREAM_SPARSE_ATTRIBUTE, 0, 0});
    extent_ = {0, 0};
    next_ = Next::extent;
    return;
  }
  start_record({BACKUP_DATA, 0, static_cast<unsigned long long>(facts_.stat.st_size), 0});
  extent_ = {0, facts_.stat.st_size};
  next_ = Next::nothing;
}

bool File_Records::begin_extent() {
  Data_Extent found;
  if (!next_extent(fd_, extent_.offset, facts_.stat.st_size, found)) return false;
  const unsigned long long size =
      sizeof(unsigned long long) + static_cast<unsigned long long>(found.size);
  start_record({BACKUP_SPARSE_BLOCK, 0, size, 0});
  append_little_endian(pending_, static_cast<unsigned long long>(found.offset));
  extent_ = found;
  if (found.offset + found.size >= facts_.stat.st_size) next_ = Next::nothing;
  return true;
}

void File_Records::start_record(const WIN32_STREAM_ID& id) {
  pending_.resize(stream_id_size);
  store_stream_id(id, &pending_[0]);
  taken_ = 0;
}

}  // namespace

void store_stream_id(const WIN32_STREAM_ID& id, char* to) {
  store_little_endian(to, id.dwStreamId);
  store_little_endian(to + 4, id.dwStreamAttributes);
  store_little_endian(to + 8, id.Size);
  store_little_endian(to + 16, id.dwStreamNameSize);
}

WIN32_STREAM_ID load_stream_id(const char* from) {
  return {load_little_endian<unsigned int>(from), load_little_endian<unsigned int>(from + 4),
          load_little_endian<unsigned long long>(from + 8),
          load_little_endian<unsigned int>(from + 16)};
}

std::unique_ptr<Record_Source> file_records(Left_Out_Attribute left_out) {
  return std::make_unique<File_Records>(std::move(left_out));
}

}  // namespace platform
