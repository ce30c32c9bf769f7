#include "agent/counted_store.h"

#include <utility>

namespace agent {
namespace {

class Counted_Reader final : public MTF::IRandom_Reader {
 public:
  Counted_Reader(std::unique_ptr<MTF::IRandom_Reader> reader,
                 std::atomic<unsigned long long>& bytes)
      : reader_(std::move(reader)), bytes_(bytes) {}

  unsigned long long size() const override { return reader_->size(); }

  long long read_at(unsigned long long offset, char* data, unsigned long long size) override {
    const long long count = reader_->read_at(offset, data, size);
    if (count > 0) bytes_ += static_cast<unsigned long long>(count);
    return count;
  }

  void read_ahead(unsigned long long offset, unsigned long long size) override {
    reader_->read_ahead(offset, size);
  }

 private:
  const std::unique_ptr<MTF::IRandom_Reader> reader_;
  std::atomic<unsigned long long>& bytes_;
};

}  // namespace

std::unique_ptr<MTF::IRandom_Reader> Counted_Store::open(const std::string& name,
                                                         std::string& error) {
  std::unique_ptr<MTF::IRandom_Reader> reader = store_.open(name, error);
  if (reader == nullptr) return nullptr;
  return std::make_unique<Counted_Reader>(std::move(reader), bytes_);
}

}  // namespace agent
