// A catalog of a remote, brought to this machine when more than its head is needed.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "agent/rclone.h"
#include "mtf/reader/piece_store.h"

namespace agent {

// May be used from several threads. What it fetched stays for its life, in a file without a name.
class Catalog_Copy {
 public:
  // `rclone` must outlive it; the file is made in the directory `tmp`.
  Catalog_Copy(Rclone& rclone, const std::string& name, unsigned long long size,
               const std::string& tmp)
      : rclone_(rclone), name_(name), size_(size), tmp_(tmp) {}

  unsigned long long size() const { return size_; }
  long long read_at(unsigned long long offset, char* data, unsigned long long size);

 private:
  bool fetch_head(std::string& error);
  bool fetch_all(std::string& error);

  Rclone& rclone_;
  const std::string name_;
  const unsigned long long size_;
  const std::string tmp_;
  std::mutex mutex_;
  std::string head_;
  platform::Piece_File file_;
};

// A reader of a copy that several readers share.
class Catalog_Reader final : public MTF::IRandom_Reader {
 public:
  explicit Catalog_Reader(std::shared_ptr<Catalog_Copy> copy) : copy_(std::move(copy)) {}

  unsigned long long size() const override { return copy_->size(); }
  long long read_at(unsigned long long offset, char* data, unsigned long long size) override {
    return copy_->read_at(offset, data, size);
  }

 private:
  std::shared_ptr<Catalog_Copy> copy_;
};

}  // namespace agent
