#include "fuzz/pieces.h"

#include <algorithm>
#include <cstring>

#include "services/bytes.h"
#include "services/piece_name.h"

namespace fuzz {
namespace {

const char stem[] = "f";

std::string name_of(const Piece& piece) {
  std::string name;
  if (piece.catalog) {
    MTF::cat_name(stem, piece.seq, piece.channel, name);
  } else {
    MTF::mtf_name(stem, piece.seq, piece.channel, name);
  }
  return name;
}

}  // namespace

long long View_Reader::read_at(unsigned long long offset, char* data, unsigned long long size) {
  if (offset >= bytes_.size()) return 0;
  const std::string_view part = bytes_.substr(offset, size);
  std::memcpy(data, part.data(), part.size());
  return static_cast<long long>(part.size());
}

std::vector<Piece> split(const std::uint8_t* data, std::size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  std::vector<Piece> pieces;
  while (rest.size() >= Piece::head_size) {
    Piece piece;
    piece.catalog = rest[0] == 'c';
    piece.seq = static_cast<unsigned char>(rest[1]);
    piece.channel = static_cast<unsigned char>(rest[2]);
    piece.bytes = rest.substr(Piece::head_size, MTF::load_le<std::uint32_t>(rest.data() + 4));
    rest.remove_prefix(Piece::head_size + piece.bytes.size());
    pieces.push_back(piece);
  }
  return pieces;
}

std::string join(const std::vector<Piece>& pieces) {
  std::string out;
  for (const Piece& piece : pieces) {
    char head[Piece::head_size] = {piece.catalog ? 'c' : 'm', static_cast<char>(piece.seq),
                                   static_cast<char>(piece.channel)};
    MTF::store_le(head + 4, static_cast<std::uint32_t>(piece.bytes.size()));
    out.append(head, sizeof head).append(piece.bytes);
  }
  return out;
}

bool Input_Store::pieces(std::vector<std::string>& names, std::string&) {
  for (const Piece& piece : pieces_) names.push_back(name_of(piece));
  return true;
}

std::unique_ptr<MTF::IRandom_Reader> Input_Store::open(const std::string& name,
                                                       std::string& error) {
  const auto found = std::find_if(pieces_.begin(), pieces_.end(),
                                  [&](const Piece& piece) { return name_of(piece) == name; });
  if (found != pieces_.end()) return std::make_unique<View_Reader>(found->bytes);
  error = "not there";
  return nullptr;
}

std::vector<MTF::Job_Pieces> jobs_of(Input_Store& store) {
  std::vector<MTF::Job_Pieces> jobs;
  std::string error;
  MTF::find_jobs(store, "", jobs, error);
  return jobs;
}

}  // namespace fuzz
