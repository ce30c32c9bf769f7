#include "tests/support/fault_channel.h"

#include <algorithm>
#include <memory>

#include "tests/support/spared.h"

namespace test_support {

bool Fault_Storage::fails(Call call) {
  const Spared spared;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    call.at = ++calls_[{call.channel, call.op}];
    log.push_back(call);
  }
  if (on_call) on_call(call);
  return call.op == fault_.op && call.channel == fault_.channel && call.at == fault_.at;
}

unsigned Fault_Storage::late_calls() const {
  bool failed = false;
  unsigned late = 0;
  for (const Call& call : log) {
    if (call.channel != fault_.channel) continue;
    const bool writes = call.op == Op::write || call.op == Op::flush || call.op == Op::filemark;
    if (failed && writes) ++late;
    failed = failed || (call.op == fault_.op && call.at == fault_.at);
  }
  return late;
}

std::string& Fault_Storage::piece(const std::string& name) {
  const Spared spared;
  const std::lock_guard<std::mutex> lock(mutex_);
  return pieces[name];
}

bool Fault_Storage::has(const std::string& name) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return pieces.count(name) != 0;
}

std::string Fault_Storage::bytes(const std::string& name) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = pieces.find(name);
  return found == pieces.end() ? std::string() : found->second;
}

unsigned long long Fault_Writer::write(const char* data, unsigned long long size) {
  const Spared spared;
  if (storage_.on_write) storage_.on_write(data, size);
  if (fails(Op::write)) size = storage_.fault_.wholly ? 0 : size - 1;
  piece_.append(data, size);
  return size;
}

unsigned long long Fault_Writer::write_filemark(unsigned long long) {
  const Spared spared;
  if (fails(Op::filemark)) return failed;
  if (storage_.filemark_size_ == 0) return 0;
  piece_ += "MARK" + std::string(storage_.filemark_size_ - 4, '\0');
  return storage_.filemark_size_;
}

// Gives a piece in small parts, as a storage may.
class Piece_Reader : public MTF::IReader {
 public:
  Piece_Reader(Fault_Storage& storage, unsigned channel, const std::string& name)
      : storage_(storage), channel_(channel), name_(name), piece_(storage.bytes(name)) {}
  long long read(char* data, unsigned long long size) override {
    constexpr unsigned long long part = 1000;
    if (storage_.fails({channel_, Op::read, 0, name_, at_, true})) return -1;
    const std::size_t n = piece_.copy(data, std::min(size, part), at_);
    at_ += n;
    return static_cast<long long>(n);
  }

 private:
  Fault_Storage& storage_;
  const unsigned channel_;
  const std::string name_;
  const std::string piece_;
  std::size_t at_ = 0;
};

class Fault_Channel : public MTF::Channel {
 public:
  Fault_Channel(Fault_Storage& storage, unsigned number) : storage_(storage), number_(number) {}
  void disconnect() override {
    note("disconnect");
    ++storage_.released_;
  }

  bool open(const char* name, int mode, int flag) override {
    const Spared spared;
    note("open ", name);
    const bool reads = mode == mode_read;
    if (storage_.fails({number_, Op::open, 0, name, 0, reads}) || flag != 0) return false;
    if (reads && !storage_.has(name)) return false;
    name_ = name;
    reads_ = reads;
    if (reads) {
      reader_ = std::make_unique<Piece_Reader>(storage_, number_, name);
      return true;
    }
    std::string& piece = storage_.piece(name);
    piece.clear();
    writer_ = std::make_unique<Fault_Writer>(storage_, number_, name, piece);
    return true;
  }

  bool close() override {
    note("close");
    const bool failed = fails(Op::close);
    name_.clear();
    return !failed;
  }

  bool remove(const char* name) override {
    const Spared spared;
    const bool failed = storage_.fails({number_, Op::remove, 0, name, 0});
    const std::lock_guard<std::mutex> lock(storage_.mutex_);
    storage_.removed.push_back(name);
    return !failed && storage_.pieces.erase(name) == 1;
  }

  MTF::IWriter* writer() override { return fails(Op::writer) ? nullptr : writer_.get(); }
  MTF::IReader* reader() override { return fails(Op::reader) ? nullptr : reader_.get(); }
  std::string err_msg() override { return channel_text; }

 private:
  bool fails(Op op) {
    const std::size_t place = name_.empty() || reads_ ? 0 : writer_->size();
    return storage_.fails({number_, op, 0, name_, place, reads_});
  }
  void note(const char* what, const char* name = "") {
    const Spared spared;
    if (number_ == 1) storage_.trace.push_back(std::string(what) + name);
  }

  Fault_Storage& storage_;
  const unsigned number_;
  std::string name_;  // of the open piece
  bool reads_ = false;
  std::unique_ptr<Fault_Writer> writer_;
  std::unique_ptr<Piece_Reader> reader_;
};

MTF::Ref_Ptr<MTF::Channel> Fault_Factory::create() {
  const Spared spared;
  if (storage_.fails({1, Op::create, 0, "", 0})) return MTF::Ref_Ptr<MTF::Channel>();
  return MTF::Ref_Ptr<MTF::Channel>(new Fault_Channel(storage_, ++storage_.channels_));
}

}  // namespace test_support
