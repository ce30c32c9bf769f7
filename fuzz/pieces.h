// The input of a target: some pieces of a storage, one behind the other.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mtf/reader/jobs.h"

namespace fuzz {

// One piece. In an input it stands packed behind a head of 8 bytes: 'm' or 'c', sequence number,
// channel, 0, packed size in 4 bytes. Packed bytes are runs: a number of zeros in 2 bytes, a number
// of other bytes in 2 bytes, and these. Most of a media is zeros, which would cost the fuzzer time.
struct Piece {
  static constexpr std::size_t head_size = 8;

  bool catalog = false;
  unsigned char seq = 0;
  unsigned char channel = 0;
  std::string bytes;  // as they are on a storage
};

// Of all pieces of an input; what goes beyond is cut off.
constexpr std::size_t most_bytes = 0x40000;

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

// A storage with the pieces of an input, named `f.SEQ.CHANNEL.mtf` and `.cat`.
class Input_Store : public MTF::IPiece_Store {
 public:
  Input_Store(const std::uint8_t* data, std::size_t size);

  bool pieces(std::vector<std::string>& names, std::string& error) override;
  std::unique_ptr<MTF::IRandom_Reader> open(const std::string& name, std::string& error) override;

 private:
  std::vector<Piece> pieces_;
  std::vector<std::string> names_;
};

// The jobs of a storage, complete or not.
std::vector<MTF::Job_Pieces> jobs_of(Input_Store& store);

}  // namespace fuzz
