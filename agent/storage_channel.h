// The channels of a job on a storage of any kind.
#pragma once

#include <memory>
#include <string>

#include "agent/piece_namer.h"
#include "agent/piece_writer.h"
#include "agent/storage.h"
#include "services/event_handler.h"
#include "services/storage.h"

namespace agent {

// Reads a piece from its first byte to its last.
class Piece_Reader final : public MTF::IReader {
 public:
  void start(std::unique_ptr<MTF::IRandom_Reader> piece);
  void finish() { piece_.reset(); }

  long long read(char* data, unsigned long long size) override;

 private:
  std::unique_ptr<MTF::IRandom_Reader> piece_;
  unsigned long long position_ = 0;
};

class Storage_Channel final : public MTF::Channel {
 public:
  // `events` may be null and must outlive the channel, like `pieces`.
  Storage_Channel(Piece_Namer& pieces, unsigned int physical_block_size,
                  const MTF::Event_Handler* events);
  ~Storage_Channel() override;

  void disconnect() override;

  // A piece that is whole is never written anew: its name is refused with "File exists".
  bool open(const char* name, int mode, int flag) override;

  // Brings a piece to the storage and leaves it to the Piece_Namer. One that failed, or whose job
  // is being cancelled, is dropped.
  bool close() override;

  // Removes the piece and what was begun under its name.
  bool remove(const char* name) override;

  MTF::IWriter* writer() override { return mode_ == mode_write ? &writer_ : nullptr; }
  MTF::IReader* reader() override { return mode_ == mode_read ? &reader_ : nullptr; }
  std::string err_msg() override { return error_; }

 private:
  bool open_write();
  bool open_read();

  IStorage& storage_;
  Piece_Namer& pieces_;
  const MTF::Event_Handler* events_;
  Piece_Writer writer_;
  Piece_Reader reader_;
  int mode_ = 0;  // 0 while no piece is open
  std::string name_;
  std::string error_;
};

class Storage_Channel_Factory final : public MTF::Channel_Factory {
 public:
  // `pieces` and `events`, which may be null, must outlive the channels.
  Storage_Channel_Factory(Piece_Namer& pieces, const MTF::Event_Handler* events)
      : pieces_(pieces), events_(events) {}

  MTF::Ref_Ptr<MTF::Channel> create() override;

 private:
  Piece_Namer& pieces_;
  const MTF::Event_Handler* events_;
};

}  // namespace agent
