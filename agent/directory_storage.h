// Storage in a directory: a file for each piece. A piece is written as NAME.part and its data is on
// the disk when it is finished; it gets its name at the end of the job, so a piece that has its
// name is whole.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/storage.h"
#include "platform/storage_directory.h"

namespace agent {

class Directory_Storage : public IStorage {
 public:
  // `path` is absolute.
  explicit Directory_Storage(const std::string& path) : path_(path) {}

  std::string title() const override;
  std::string directory() const override { return path_; }
  bool open_for_reading(std::string& error) override;
  bool open_for_job(const std::string& stem, bool make, std::string& error) override;
  bool unlock(const std::string& stem, std::vector<std::string>& lines,
              std::string& error) override;
  const std::vector<std::string>& cleared() const override { return cleared_; }
  bool identity(std::string& out, std::string& error) const override;
  bool list(std::vector<Stored_Piece>& pieces, std::string& error) override;
  std::unique_ptr<MTF::IRandom_Reader> open(const std::string& name, std::string& error) override;
  std::unique_ptr<IPiece_Sink> create(const std::string& name, std::string& error) override;
  std::unique_ptr<MTF::IRandom_Reader> reopen(const std::string& name, std::string& error) override;
  bool name_pieces(const std::vector<std::string>& names, std::string& error) override;
  bool remove(const std::vector<std::string>& names, std::string& error) override;

 private:
  std::unique_ptr<MTF::IRandom_Reader> open(const std::string& name, bool cached,
                                            std::string& error) const;
  bool remove_unfinished(const std::string& stem, std::string& error);
  bool remove(const std::string& name) const;
  bool fail(std::string& error) const;

  std::string path_;
  platform::Storage_Directory directory_;
  platform::Lock_File lock_;
  std::vector<std::string> cleared_;
};

}  // namespace agent
