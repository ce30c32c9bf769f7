// A storage that counts what is read of it.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "mtf/reader/piece_store.h"

namespace agent {

// Its readers may not outlive it.
class Counted_Store final : public MTF::IPiece_Store {
 public:
  // `store` must outlive it.
  explicit Counted_Store(MTF::IPiece_Store& store) : store_(store) {}

  bool pieces(std::vector<std::string>& names, std::string& error) override {
    return store_.pieces(names, error);
  }
  std::unique_ptr<MTF::IRandom_Reader> open(const std::string& name, std::string& error) override;

  // Bytes read so far. From any thread.
  unsigned long long bytes() const { return bytes_; }

 private:
  MTF::IPiece_Store& store_;
  std::atomic<unsigned long long> bytes_{0};
};

}  // namespace agent
