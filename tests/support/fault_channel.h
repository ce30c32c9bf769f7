// A storage in memory that fails where a test tells it to.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "services/storage.h"

namespace test_support {

enum class Op { create, open, writer, reader, read, write, flush, filemark, close, remove };

// The `at`-th call of `op` on channel `channel`, all counted from 1, fails; 0 for none. A failing
// write takes all bytes but one, or none at all with `wholly`.
struct Fault {
  Op op = Op::create;
  unsigned at = 0;
  unsigned channel = 1;
  bool wholly = false;
};

// A call as it came. The factory's calls count as those of channel 1.
struct Call {
  unsigned channel;
  Op op;
  unsigned at;         // how many of this kind the channel has had, this one included
  std::string piece;   // that is open or asked for; empty if none is
  std::size_t place;   // in the piece
  bool reads = false;  // the piece is open for reading
};

// What a job left, shared by its channels. Each channel is used by one thread.
class Fault_Storage {
 public:
  explicit Fault_Storage(Fault fault = {}, unsigned filemark_size = 0)
      : fault_(fault), filemark_size_(filemark_size) {}

  std::map<std::string, std::string> pieces;  // by name; while a job runs, bytes() reads them
  std::vector<std::string> removed;           // names asked for, in order
  std::vector<std::string> trace;             // of channel 1: `open NAME`, `close`, `disconnect`

  std::vector<Call> log;  // all calls; in order for each channel

  // Called before a write, with the bytes, on the thread of its channel.
  std::function<void(const char* data, unsigned long long size)> on_write;

  // Called before each call does its work, on the thread that makes it.
  std::function<void(const Call& call)> on_call;

  // A copy of the piece `name`, empty if there is none. A running job may be asked for the pieces
  // of the channel whose thread asks.
  std::string bytes(const std::string& name) const;

  // How often `op` was called on channel 1.
  unsigned calls(Op op) const { return calls_.count({1, op}) ? calls_.at({1, op}) : 0; }

  // How many channels were made, and how many were disconnected.
  unsigned made() const { return channels_; }
  unsigned released() const { return released_; }

  // How often the channel that failed was written to behind the failure.
  unsigned late_calls() const;

 private:
  friend class Fault_Channel;
  friend class Fault_Writer;
  friend class Fault_Factory;
  friend class Piece_Reader;
  // Notes the call; true if it is the one to fail.
  bool fails(Call call);
  bool has(const std::string& name) const;
  std::string& piece(const std::string& name);

  const Fault fault_;
  const unsigned filemark_size_;
  unsigned channels_ = 0;
  unsigned released_ = 0;
  std::map<std::pair<unsigned, Op>, unsigned> calls_;
  mutable std::mutex mutex_;
};

class Fault_Factory : public MTF::Channel_Factory {
 public:
  explicit Fault_Factory(Fault_Storage& storage) : storage_(storage) {}
  MTF::Ref_Ptr<MTF::Channel> create() override;
  unsigned int block_size() const { return bytes_per_blk_; }

 private:
  Fault_Storage& storage_;
};

// The texts that a job reports.
constexpr const char* channel_text = "the channel failed";
constexpr const char* writer_text = "the writer failed";

class Fault_Writer : public MTF::IWriter {
 public:
  Fault_Writer(Fault_Storage& storage, unsigned channel, const std::string& name,
               std::string& piece)
      : storage_(storage), channel_(channel), name_(name), piece_(piece) {}
  unsigned long long write(const char* data, unsigned long long size) override;
  bool flush() override { return !fails(Op::flush); }
  unsigned long long write_filemark(unsigned long long pba) override;
  unsigned long long size() override { return piece_.size(); }
  std::string err_msg() override { return writer_text; }

 private:
  bool fails(Op op) { return storage_.fails({channel_, op, 0, name_, piece_.size()}); }

  Fault_Storage& storage_;
  const unsigned channel_;
  const std::string name_;
  std::string& piece_;
};

// A writer over a string, for what needs no channel.
class Memory_Writer : public Fault_Writer {
 public:
  explicit Memory_Writer(Fault fault = {})
      : Memory_Writer(std::make_unique<Fault_Storage>(fault)) {}
  std::string& bytes;
  const Fault_Storage& storage() const { return *owned_; }

 private:
  explicit Memory_Writer(std::unique_ptr<Fault_Storage> storage)
      : Fault_Writer(*storage, 1, "piece", storage->pieces["piece"]),
        bytes(storage->pieces["piece"]),
        owned_(std::move(storage)) {}
  std::unique_ptr<Fault_Storage> owned_;
};

}  // namespace test_support
