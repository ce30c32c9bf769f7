#include "agent/directory_storage.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "agent/text.h"
#include "services/piece_name.h"

namespace agent {
namespace {

// What the name of a piece ends in until it gets its own.
constexpr const char* part_ending = ".part";

bool is_unfinished(const std::string& name, const std::string& stem) {
  const std::size_t ending = std::strlen(part_ending);
  if (name.size() <= ending || name.compare(name.size() - ending, ending, part_ending) != 0) {
    return false;
  }
  MTF::Piece_Name piece;
  return MTF::parse_piece_name(name.substr(0, name.size() - ending), piece) && piece.stem == stem;
}

bool fail(std::string& error, const std::string& object) {
  error = error_text(object, errno);
  return false;
}

class File_Sink final : public IPiece_Sink {
 public:
  File_Sink(const platform::Storage_Directory& directory, platform::Piece_File file,
            std::string part)
      : directory_(directory), file_(std::move(file)), part_(std::move(part)) {}

  ~File_Sink() override {
    if (kept_) return;
    file_.close();
    directory_.remove(part_);
  }

  bool write(const char* data, std::size_t size) override {
    return file_.write_all(data, size) || fail(error_, part_);
  }

  bool finish() override {
    kept_ = file_.sync() || fail(error_, part_);
    if (!file_.close() && kept_) kept_ = fail(error_, part_);
    return kept_;
  }

  const std::string& error() const override { return error_; }

 private:
  const platform::Storage_Directory& directory_;
  platform::Piece_File file_;
  const std::string part_;
  std::string error_;
  bool kept_ = false;
};

class File_Reader final : public MTF::IRandom_Reader {
 public:
  File_Reader(platform::Piece_File file, unsigned long long size)
      : file_(std::move(file)), size_(size) {}

  unsigned long long size() const override { return size_; }

  long long read_at(unsigned long long offset, char* data, unsigned long long size) override {
    // What was appended since the piece was opened doesn't count.
    if (offset >= size_) return 0;
    return file_.read_at(offset, data, std::min(size, size_ - offset));
  }

  void read_ahead(unsigned long long offset, unsigned long long size) override {
    file_.read_ahead(offset, size);
  }

 private:
  platform::Piece_File file_;
  unsigned long long size_;
};

}  // namespace

std::string Directory_Storage::title() const {
  return "storage '" + escape_name(path_) + '\'';
}

bool Directory_Storage::open_for_reading(std::string& error) {
  return directory_.open(path_, false) || fail(error);
}

bool Directory_Storage::open_for_job(const std::string& stem, bool make, std::string& error) {
  if (!directory_.open(path_, make) || !directory_.is_writable()) {
    const bool nothing_above = make && errno == ENOENT;
    fail(error);
    if (nothing_above) error += "; the directory above it isn't there either";
    return false;
  }
  if (directory_.lock('.' + stem + ".lock", lock_)) return remove_unfinished(stem, error);
  if (errno != EWOULDBLOCK) return fail(error);
  error = "a job of '" + stem + "' is running";
  return false;
}

// The system gives the lock back when its holder dies: one that is held is alive.
bool Directory_Storage::unlock(const std::string& stem, std::vector<std::string>&,
                               std::string& error) {
  if (!directory_.open(path_, false)) return fail(error);
  platform::Lock_File lock;
  if (directory_.lock('.' + stem + ".lock", lock)) return true;
  if (errno != EWOULDBLOCK) return fail(error);
  error = "a job of '" + stem + "' is running, and the lock goes with it";
  return false;
}

bool Directory_Storage::identity(std::string& out, std::string& error) const {
  return directory_.identity(out) || fail(error);
}

bool Directory_Storage::list(std::vector<Stored_Piece>& pieces, std::string& error) {
  pieces.clear();
  std::vector<std::string> names;
  if (!directory_.names(names)) return fail(error);
  for (const std::string& name : names) {
    MTF::Piece_Name piece;
    if (!MTF::parse_piece_name(name, piece)) continue;
    const long long size = directory_.size(name);
    pieces.push_back({name, size < 0 ? 0 : static_cast<unsigned long long>(size)});
  }
  return true;
}

std::unique_ptr<MTF::IRandom_Reader> Directory_Storage::open(const std::string& name,
                                                             std::string& error) {
  return open(name, true, error);
}

std::unique_ptr<MTF::IRandom_Reader> Directory_Storage::reopen(const std::string& name,
                                                               std::string& error) {
  const std::string part = name + part_ending;
  return open(directory_.exists(part) ? part : name, false, error);
}

std::unique_ptr<MTF::IRandom_Reader> Directory_Storage::open(const std::string& name, bool cached,
                                                             std::string& error) const {
  platform::Piece_File file;
  long long size = -1;
  if (directory_.open_read(name, file)) size = file.size();
  if (size >= 0) {
    if (!cached) file.forget_cached();
    return std::make_unique<File_Reader>(std::move(file), static_cast<unsigned long long>(size));
  }
  agent::fail(error, name);
  return nullptr;
}

std::unique_ptr<IPiece_Sink> Directory_Storage::create(const std::string& name,
                                                       std::string& error) {
  const std::string part = name + part_ending;
  platform::Piece_File file;
  if (!platform::Storage_Directory::is_plain(name) || directory_.exists(name)) {
    errno = platform::Storage_Directory::is_plain(name) ? EEXIST : EINVAL;
    agent::fail(error, name);
    return nullptr;
  }
  if (directory_.create(part, file)) {
    return std::make_unique<File_Sink>(directory_, std::move(file), part);
  }
  agent::fail(error, part);
  return nullptr;
}

bool Directory_Storage::name_pieces(const std::vector<std::string>& names, std::string& error) {
  for (const std::string& name : names) {
    if (!directory_.rename(name + part_ending, name)) return agent::fail(error, name);
  }
  return directory_.sync() || agent::fail(error, "the storage");
}

bool Directory_Storage::remove(const std::vector<std::string>& names, std::string& error) {
  for (const std::string& name : names) {
    if (!remove(name)) return agent::fail(error, name);
  }
  return directory_.sync() || fail(error);
}

bool Directory_Storage::remove(const std::string& name) const {
  const bool had_part = directory_.remove(name + part_ending);
  return directory_.remove(name) || (had_part && errno == ENOENT);
}

bool Directory_Storage::remove_unfinished(const std::string& stem, std::string& error) {
  std::vector<std::string> names;
  if (!directory_.names(names)) return fail(error);
  for (const std::string& name : names) {
    if (!is_unfinished(name, stem)) continue;
    if (!directory_.remove(name)) return agent::fail(error, name);
    cleared_.push_back(name);
  }
  return true;
}

bool Directory_Storage::fail(std::string& error) const {
  return agent::fail(error, title());
}

}  // namespace agent
