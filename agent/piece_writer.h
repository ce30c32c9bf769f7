// What a job writes a piece through.
#pragma once

#include <memory>
#include <new>
#include <string>

#include "agent/soft_filemark.h"
#include "agent/storage.h"
#include "services/buffer.h"
#include "services/storage.h"

namespace agent {

// Small writes are gathered into blocks of block_size; those of direct_size and more go to the sink
// from where they stand. After the first failure nothing more is taken. One piece after the other
// goes through one writer, which keeps its memory.
class Piece_Writer final : public MTF::IWriter {
 public:
  static constexpr std::size_t block_size = 1 << 20;
  static constexpr std::size_t direct_size = 64 << 10;

  explicit Piece_Writer(unsigned int physical_block_size);

  // Starts the piece that goes to `sink`; `name` is what error texts of the writer's own begin
  // with. False, with an error text, if there is no memory for the block.
  bool start(std::unique_ptr<IPiece_Sink> sink, const std::string& name);

  // Writes what is gathered and finishes the piece. False if that, or anything since start(),
  // failed; the piece is then dropped.
  bool finish();

  // Drops the piece.
  void discard() { sink_.reset(); }

  bool has_failed() const { return failed_; }

  unsigned long long write(const char* data, unsigned long long size) override;
  bool flush() override { return !failed_; }
  unsigned long long write_filemark(unsigned long long pba) override;
  unsigned long long size() override { return size_; }
  std::string err_msg() override { return error_; }

 private:
  struct Aligned_Delete {
    void operator()(char* memory) const;
  };

  void fail(const std::string& error);
  bool put(const char* data, std::size_t size);
  bool drain();

  std::unique_ptr<IPiece_Sink> sink_;
  std::string name_;
  std::string error_;
  bool failed_ = false;
  unsigned long long size_ = 0;
  std::unique_ptr<char, Aligned_Delete> block_;
  std::size_t used_ = 0;  // bytes gathered in block_
  Soft_Filemarks filemarks_;
  MTF::Buffer filemark_{8};  // one physical block
  const unsigned int physical_block_size_;
};

}  // namespace agent
