#include "agent/rclone_storage.h"

#include <algorithm>
#include <boost/uuid/name_generator_sha1.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <cerrno>
#include <utility>

#include "agent/remote_reader.h"
#include "agent/text.h"
#include "services/no_throw.h"
#include "services/piece_name.h"

namespace agent {
namespace {

constexpr const char* lock_lost = "the lock of this job was taken over: it had not been renewed";

bool is_remote_byte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-' || c == '.' || c == ' ';
}

bool has(const std::vector<Remote_Object>& objects, const std::string& name) {
  return std::any_of(objects.begin(), objects.end(),
                     [&](const Remote_Object& each) { return each.name == name; });
}

// Reads a file that is the storage's.
class Kept_Reader final : public MTF::IRandom_Reader {
 public:
  Kept_Reader(platform::Piece_File& file, unsigned long long size) : file_(file), size_(size) {}

  unsigned long long size() const override { return size_; }
  long long read_at(unsigned long long offset, char* data, unsigned long long size) override {
    return file_.read_at(offset, data, static_cast<std::size_t>(size));
  }

 private:
  platform::Piece_File& file_;
  const unsigned long long size_;
};

}  // namespace

bool check_place(const std::string& place, std::string& error) {
  const std::size_t colon = place.find(':');
  if (colon != std::string::npos && colon != 0 &&
      std::all_of(place.begin(), place.begin() + static_cast<std::ptrdiff_t>(colon),
                  is_remote_byte)) {
    return true;
  }
  error =
      "a storage of rclone is given as rclone:REMOTE:PATH, where REMOTE is a name in the "
      "configuration of rclone, which holds all options and keys";
  return false;
}

// Takes what a channel writes and gives it to rclone at once.
class Rclone_Storage::Media_Sink final : public IPiece_Sink {
 public:
  Media_Sink(Rclone_Storage& storage, const std::string& name,
             std::unique_ptr<platform::Child_Process> call)
      : storage_(storage), name_(name), call_(std::move(call)) {}

  bool write(const char* data, std::size_t size) override {
    if (storage_.lock_.is_lost()) return storage_.fail(lock_lost, error_);
    if (!call_->write(data, size)) return storage_.fail(broken_text(), error_);
    length_ += size;
    return true;
  }

  // The object of a job that lost its lock would replace the one of who has it now.
  bool finish() override {
    std::string why;
    if (!storage_.lock_.is_kept()) return storage_.fail(lock_lost, error_);
    const bool done = storage_.rclone_.finish(*call_, why) == Call_End::done;
    call_.reset();
    if (!done) return storage_.fail(name_ + ": " + why, error_);
    const std::lock_guard<std::mutex> guard(storage_.mutex_);
    storage_.lengths_[name_] = length_;
    return true;
  }

  const std::string& error() const override { return error_; }

 private:
  std::string broken_text() { return name_ + ": " + storage_.rclone_.broken(*call_); }

  Rclone_Storage& storage_;
  const std::string name_;
  std::unique_ptr<platform::Child_Process> call_;
  unsigned long long length_ = 0;
  std::string error_;
};

// Keeps a catalog here until the medias are there.
class Rclone_Storage::Catalog_Sink final : public IPiece_Sink {
 public:
  Catalog_Sink(Rclone_Storage& storage, const std::string& name, platform::Piece_File file)
      : storage_(storage), name_(name), file_(std::move(file)) {}

  bool write(const char* data, std::size_t size) override {
    if (!file_.write_all(data, size)) return fail();
    length_ += size;
    return true;
  }

  bool finish() override {
    const std::lock_guard<std::mutex> guard(storage_.mutex_);
    storage_.catalogs_[name_] = std::move(file_);
    storage_.lengths_[name_] = length_;
    return true;
  }

  const std::string& error() const override { return error_; }

 private:
  bool fail() {
    error_ = error_text("the copy of " + name_ + " in '" + storage_.tmp_ + '\'', errno);
    return false;
  }

  Rclone_Storage& storage_;
  const std::string name_;
  platform::Piece_File file_;
  unsigned long long length_ = 0;
  std::string error_;
};

// The mark of a job that failed is still there: the pieces that it stands beside are removed, as
// far as the remote still answers. Without its lock the mark may be another job's.
Rclone_Storage::~Rclone_Storage() {
  MTF::no_throw("Storage", false, [&] { return remove_marked(); });
}

bool Rclone_Storage::remove_marked() {
  std::string error;
  const std::vector<Mark> marks = std::exchange(marks_, {});
  return std::all_of(marks.begin(), marks.end(), [&](const Mark& mark) {
    return !rclone_.is_given_up() && look(true, error) && lock_.is_among(objects_) &&
           (!has(objects_, mark.name()) || remove_marked(mark, error));
  });
}

bool Rclone_Storage::fail(const std::string& why, std::string& error) const {
  error = title() + ": " + why;
  return false;
}

std::string Rclone_Storage::title() const {
  return "storage 'rclone:" + escape_name(place_) + '\'';
}

bool Rclone_Storage::identity(std::string& out, std::string&) const {
  const boost::uuids::name_generator_sha1 generator(boost::uuids::ns::url());
  out = "rclone-" + to_string(generator(place_));
  return true;
}

bool Rclone_Storage::look(bool may_be_missing, std::string& error) {
  std::vector<Remote_Object> objects;
  std::string why;
  const Call_End end = rclone_.list(objects, why);
  if (end == Call_End::failed || (end == Call_End::missing && !may_be_missing)) {
    return fail(why, error);
  }
  keep(std::move(objects));
  return true;
}

void Rclone_Storage::keep(std::vector<Remote_Object> objects) {
  const std::lock_guard<std::mutex> guard(mutex_);
  objects_ = std::move(objects);
  find_pieces();
}

// What counts among the objects. The caller holds the mutex.
void Rclone_Storage::find_pieces() {
  const std::vector<Mark> marks = marks_among(objects_, {});
  std::map<std::string, Known> known;
  for (const Remote_Object& object : objects_) {
    MTF::Piece_Name piece;
    const bool covered = std::any_of(marks.begin(), marks.end(),
                                     [&](const Mark& mark) { return mark.covers(object.name); });
    if (covered || !MTF::parse_piece_name(object.name, piece)) continue;
    Known& entry = known[object.name];
    const auto before = known_.find(object.name);
    if (before != known_.end() && before->second.object.size == object.size) {
      entry.copy = before->second.copy;
    }
    entry.object = object;
  }
  known_ = std::move(known);
}

bool Rclone_Storage::open_for_reading(std::string& error) {
  return is_fresh_ = look(false, error);
}

bool Rclone_Storage::open_for_job(const std::string& stem, bool make, std::string& error) {
  std::string why;
  // Nothing is written where nothing is to be made.
  if (!make && !look(false, error)) return false;
  std::vector<Remote_Object> objects;
  if (!lock_.take(stem, objects, why)) return fail(why, error);
  keep(std::move(objects));
  return remove_unfinished(stem, error);
}

bool Rclone_Storage::unlock(const std::string& stem, std::vector<std::string>& lines,
                            std::string& error) {
  std::string why;
  return look(false, error) && (Remote_Lock::unlock(rclone_, stem, lines, why) || fail(why, error));
}

bool Rclone_Storage::remove_unfinished(const std::string& stem, std::string& error) {
  const std::vector<Mark> marks = marks_among(objects_, stem);
  for (const Mark& mark : marks) {
    if (!remove_marked(mark, error)) return false;
  }
  return marks.empty() || look(false, error);
}

// The mark goes last: what a failure leaves still doesn't count.
bool Rclone_Storage::remove_marked(const Mark& mark, std::string& error) {
  for (const Remote_Object& object : objects_) {
    if (!mark.covers(object.name)) continue;
    if (!remove_object(object.name, error)) return false;
    cleared_.push_back(object.name);
  }
  return remove_object(mark.name(), error);
}

bool Rclone_Storage::remove_object(const std::string& name, std::string& error) {
  std::string why;
  return rclone_.remove(name, why) == Call_End::done || fail(name + ": " + why, error);
}

bool Rclone_Storage::list(std::vector<Stored_Piece>& pieces, std::string& error) {
  pieces.clear();
  // While the lock is held, nobody else changes what it is for.
  if (!lock_.is_held() && !std::exchange(is_fresh_, false) && !look(false, error)) return false;
  const std::lock_guard<std::mutex> guard(mutex_);
  for (const auto& [name, known] : known_) pieces.push_back({name, known.object.size});
  return true;
}

std::unique_ptr<MTF::IRandom_Reader> Rclone_Storage::open(const std::string& name,
                                                          std::string& error) {
  const std::lock_guard<std::mutex> guard(mutex_);
  const auto found = known_.find(name);
  MTF::Piece_Name piece;
  if (found == known_.end() || !MTF::parse_piece_name(name, piece)) {
    error = error_text(name, ENOENT);
    return nullptr;
  }
  Known& known = found->second;
  if (!known.object.sized) {
    error = name + ": the remote doesn't tell its size";
    return nullptr;
  }
  if (!piece.catalog) {
    return std::make_unique<Remote_Reader>(rclone_, name, known.object.size);
  }
  if (known.copy == nullptr) {
    known.copy = std::make_shared<Catalog_Copy>(rclone_, name, known.object.size, tmp_);
  }
  return std::make_unique<Catalog_Reader>(known.copy);
}

bool Rclone_Storage::put_mark(const Mark& mark, std::string& error) {
  const auto covers = [&](const Mark& each) {
    return each.name() == mark.name() || each.covers(mark.piece);
  };
  if (std::any_of(marks_.begin(), marks_.end(), covers)) return true;
  marks_.push_back(mark);  // ahead of the call, which may fail and leave it all the same
  std::string why;
  return rclone_.put(mark.name(), Lock_Holder::own().text(), why) == Call_End::done ||
         fail(why, error);
}

std::unique_ptr<IPiece_Sink> Rclone_Storage::create(const std::string& name, std::string& error) {
  const std::lock_guard<std::mutex> guard(mutex_);
  MTF::Piece_Name piece;
  if (!MTF::parse_piece_name(name, piece) || has(objects_, name) || lengths_.count(name) != 0) {
    error = error_text(name, MTF::parse_piece_name(name, piece) ? EEXIST : EINVAL);
    return nullptr;
  }
  if (piece.catalog) {
    platform::Piece_File file;
    if (file.open_unnamed(tmp_)) {
      return std::make_unique<Catalog_Sink>(*this, name, std::move(file));
    }
    error = error_text("the copy of " + name + " in '" + tmp_ + '\'', errno);
    return nullptr;
  }
  // A piece that joins a job that is there must not hide that job's other pieces.
  const bool joins = std::any_of(known_.begin(), known_.end(), [&](const auto& each) {
    return Mark{piece.stem, piece.seq, {}}.covers(each.first);
  });
  if (!put_mark({piece.stem, piece.seq, joins ? name : ""}, error)) return nullptr;
  std::string why;
  auto call = rclone_.start_writing(name, why);
  if (call != nullptr) return std::make_unique<Media_Sink>(*this, name, std::move(call));
  fail(why, error);
  return nullptr;
}

// A catalog stays on this machine until its job is whole, and is read back from here.
std::unique_ptr<MTF::IRandom_Reader> Rclone_Storage::reopen(const std::string& name,
                                                            std::string& error) {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    const auto length = lengths_.find(name);
    const auto catalog = catalogs_.find(name);
    if (catalog != catalogs_.end()) {
      return std::make_unique<Kept_Reader>(catalog->second, length->second);
    }
    if (length != lengths_.end()) {
      return std::make_unique<Remote_Reader>(rclone_, name, length->second);
    }
  }
  return open(name, error);
}

bool Rclone_Storage::send_catalog(const std::string& name, std::string& error) {
  const auto found = catalogs_.find(name);
  if (found == catalogs_.end()) return true;
  std::string why;
  return rclone_.put_file(name, found->second, why) == Call_End::done ||
         fail(name + ": " + why, error);
}

bool Rclone_Storage::check_lengths(const std::vector<std::string>& names, std::string& error) {
  if (!look(false, error)) return false;
  if (!lock_.is_among(objects_)) {
    return fail(lock_lost, error);
  }
  for (const std::string& name : names) {
    const auto found = std::find_if(objects_.begin(), objects_.end(),
                                    [&](const Remote_Object& each) { return each.name == name; });
    if (found == objects_.end()) return fail(name + ": it isn't there", error);
    if (found->sized && found->size != lengths_[name]) {
      return fail(name + ": it has " + std::to_string(found->size) + " bytes and should have " +
                      std::to_string(lengths_[name]),
                  error);
    }
  }
  return true;
}

bool Rclone_Storage::name_pieces(const std::vector<std::string>& names, std::string& error) {
  for (const std::string& name : names) {
    MTF::Piece_Name piece;
    if (!MTF::parse_piece_name(name, piece)) return fail(error_text(name, EINVAL), error);
    if (!put_mark({piece.stem, piece.seq, name}, error)) return false;
    if (!send_catalog(name, error)) return false;
  }
  if (!check_lengths(names, error)) return false;
  for (const std::string& name : names) {
    catalogs_.erase(name);
    lengths_.erase(name);
  }
  return end_marks(names, error);
}

// Behind this the job counts. The mark of another job, one that failed, stays.
bool Rclone_Storage::end_marks(const std::vector<std::string>& names, std::string& error) {
  const auto covers = [&](const Mark& mark) {
    return std::any_of(names.begin(), names.end(),
                       [&](const std::string& name) { return mark.covers(name); });
  };
  for (auto mark = marks_.begin(); mark != marks_.end();) {
    if (!covers(*mark)) {
      ++mark;
      continue;
    }
    if (!remove_object(mark->name(), error)) return false;
    forget(mark->name());
    mark = marks_.erase(mark);
  }
  const std::lock_guard<std::mutex> guard(mutex_);
  find_pieces();
  return true;
}

void Rclone_Storage::forget(const std::string& name) {
  const std::lock_guard<std::mutex> guard(mutex_);
  objects_.erase(std::remove_if(objects_.begin(), objects_.end(),
                                [&](const Remote_Object& each) { return each.name == name; }),
                 objects_.end());
}

bool Rclone_Storage::remove(const std::vector<std::string>& names, std::string& error) {
  if (!look(false, error)) return false;
  if (!lock_.is_among(objects_)) return fail(lock_lost, error);
  for (const std::string& name : names) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const bool was_here = catalogs_.erase(name) != 0;
    lengths_.erase(name);
    const auto object = std::find_if(objects_.begin(), objects_.end(),
                                     [&](const Remote_Object& each) { return each.name == name; });
    if (object == objects_.end()) {
      if (was_here) continue;
      error = error_text(name, ENOENT);
      return false;
    }
    if (!remove_object(name, error)) return false;
    objects_.erase(object);
    known_.erase(name);
  }
  return true;
}

}  // namespace agent
