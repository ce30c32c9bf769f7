// The input of a target: some pieces of a storage, one behind the other.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mtf/reader/jobs.h"

namespace fuzz {

// One piece as it stands in an input, behind a head of 8 bytes: 'm' or 'c', sequence number,
// channel, 0, size in 4 bytes.
struct Piece {
  static constexpr std::size_t head_size = 8;

  bool catalog = false;
  unsigned char seq = 0;
  unsigned char channel = 0;
  std::string_view bytes;
};

// The pieces of an input. A size that leads behind the end counts as that of the rest.
std::vector<Piece> split(const std::uint8_t* data, std::size_t size);

// The input that holds `pieces`.
std::string join(const std::vector<Piece>& pieces);

// A piece over bytes that must outlive it.
class View_Reader : public MTF::IRandom_Reader {
 public:
  explicit View_Reader(std::string_view bytes) : bytes_(bytes) {}

  unsigned long long size() const override { return bytes_.size(); }
  long long read_at(unsigned long long offset, char* data, unsigned long long size) override;

 private:
  std::string_view bytes_;
};

// A storage with the pieces of an input, named `f.SEQ.CHANNEL.mtf` and `.cat`. The input must
// outlive it.
class Input_Store : public MTF::IPiece_Store {
 public:
  Input_Store(const std::uint8_t* data, std::size_t size) : pieces_(split(data, size)) {}

  bool pieces(std::vector<std::string>& names, std::string& error) override;
  std::unique_ptr<MTF::IRandom_Reader> open(const std::string& name, std::string& error) override;

  const std::vector<Piece>& held() const { return pieces_; }

 private:
  std::vector<Piece> pieces_;
};

// The jobs of a storage, complete or not.
std::vector<MTF::Job_Pieces> jobs_of(Input_Store& store);

}  // namespace fuzz
