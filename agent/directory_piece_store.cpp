#include "agent/directory_piece_store.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "agent/text.h"
#include "platform/piece_file.h"
#include "services/piece_name.h"

namespace agent {
namespace {

class Random_Reader final : public MTF::IRandom_Reader {
 public:
  Random_Reader(platform::Piece_File file, unsigned long long size)
      : file_(std::move(file)), size_(size) {}

  unsigned long long size() const override { return size_; }

  long long read_at(unsigned long long offset, char* data, unsigned long long size) override {
    // What was appended since the piece was opened doesn't count.
    if (offset >= size_) return 0;
    return file_.read_at(offset, data, std::min(size, size_ - offset));
  }

 private:
  platform::Piece_File file_;
  unsigned long long size_;
};

}  // namespace

bool Directory_Piece_Store::pieces(std::vector<std::string>& names, std::string& error) {
  if (!directory_.names(names)) {
    error = error_text("storage '" + path_ + "'", errno);
    return false;
  }
  const auto is_no_piece = [](const std::string& name) {
    MTF::Piece_Name piece;
    return !MTF::parse_piece_name(name, piece);
  };
  names.erase(std::remove_if(names.begin(), names.end(), is_no_piece), names.end());
  return true;
}

std::unique_ptr<MTF::IRandom_Reader> Directory_Piece_Store::open(const std::string& name,
                                                                 std::string& error) {
  platform::Piece_File file;
  long long size = -1;
  if (directory_.open_read(name, file)) size = file.size();
  if (size < 0) {
    error = error_text(name, errno);
    return nullptr;
  }
  return std::make_unique<Random_Reader>(std::move(file), static_cast<unsigned long long>(size));
}

}  // namespace agent
