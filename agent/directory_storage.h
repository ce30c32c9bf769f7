// Storage in a directory: a file for each piece. A piece is written as NAME.part and its data is on
// the disk when it is closed; it gets its name at the end of the job, so a piece that has its name
// is whole.
#pragma once

#include <string>
#include <utility>

#include "agent/piece_namer.h"
#include "agent/piece_writer.h"
#include "platform/storage_directory.h"
#include "services/event_handler.h"
#include "services/storage.h"

namespace agent {

class Piece_Reader final : public MTF::IReader {
 public:
  void start(platform::Piece_File file) { file_ = std::move(file); }
  bool finish() { return file_.close(); }

  long long read(char* data, unsigned long long size) override { return file_.read(data, size); }

 private:
  platform::Piece_File file_;
};

class Directory_Channel final : public MTF::Channel {
 public:
  // `events` may be null and must outlive the channel, like `pieces`.
  Directory_Channel(Piece_Namer& pieces, unsigned int physical_block_size,
                    const MTF::Event_Handler* events);
  ~Directory_Channel() override;

  void disconnect() override;

  // A piece that is whole is never written anew: its name is refused with "File exists".
  bool open(const char* name, int mode, int flag) override;

  // Brings a piece to the disk and leaves it to the Piece_Namer. One that failed, or whose job is
  // being cancelled, is dropped.
  bool close() override;

  // Removes the piece and what was begun under its name.
  bool remove(const char* name) override;

  MTF::IWriter* writer() override { return mode_ == mode_write ? &writer_ : nullptr; }
  MTF::IReader* reader() override { return mode_ == mode_read ? &reader_ : nullptr; }
  std::string err_msg() override { return error_; }

 private:
  bool open_write();
  bool open_read();
  void drop();
  bool fail(const std::string& object);

  const platform::Storage_Directory& directory_;
  Piece_Namer& pieces_;
  const MTF::Event_Handler* events_;
  Piece_Writer writer_;
  Piece_Reader reader_;
  int mode_ = 0;  // 0 while no piece is open
  std::string name_;
  std::string error_;
};

class Directory_Channel_Factory final : public MTF::Channel_Factory {
 public:
  // `pieces` and `events`, which may be null, must outlive the channels.
  Directory_Channel_Factory(Piece_Namer& pieces, const MTF::Event_Handler* events)
      : pieces_(pieces), events_(events) {}

  MTF::Ref_Ptr<MTF::Channel> create() override;

 private:
  Piece_Namer& pieces_;
  const MTF::Event_Handler* events_;
};

}  // namespace agent
