// The pieces of a storage directory for the way back.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mtf/reader/piece_store.h"
#include "platform/storage_directory.h"

namespace agent {

// Gives whole pieces only: what has the name of a piece. Its readers outlive it.
class Directory_Piece_Store final : public MTF::IPiece_Store {
 public:
  // `directory` must outlive the store; `path` is its name for error texts.
  Directory_Piece_Store(const platform::Storage_Directory& directory, const std::string& path)
      : directory_(directory), path_(path) {}

  bool pieces(std::vector<std::string>& names, std::string& error) override;
  std::unique_ptr<MTF::IRandom_Reader> open(const std::string& name, std::string& error) override;

 private:
  const platform::Storage_Directory& directory_;
  std::string path_;
};

}  // namespace agent
