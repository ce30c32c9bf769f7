#include "fuzz/pieces.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "services/bytes.h"
#include "services/piece_name.h"

namespace fuzz {
namespace {

const char stem[] = "f";

// Fewer zeros than these are packed like other bytes.
constexpr std::size_t shortest_run = 8;
constexpr std::size_t longest_run = 0xFFFF;

std::string pack(std::string_view bytes) {
  const std::string run(shortest_run, '\0');
  std::string out;
  while (!bytes.empty()) {
    const std::size_t zeros = std::min({bytes.find_first_not_of('\0'), bytes.size(), longest_run});
    const std::string_view rest = bytes.substr(zeros);
    const std::size_t others = std::min({rest.find(run), rest.size(), longest_run});
    char head[4];
    MTF::store_le(head, static_cast<std::uint16_t>(zeros));
    MTF::store_le(head + 2, static_cast<std::uint16_t>(others));
    out.append(head, sizeof head).append(rest.substr(0, others));
    bytes = rest.substr(others);
  }
  return out;
}

// At most `most` bytes.
std::string unpack(std::string_view packed, std::size_t most) {
  std::string out;
  while (packed.size() >= 4 && out.size() < most) {
    out.append(MTF::load_le<std::uint16_t>(packed.data()), '\0');
    const std::string_view others =
        packed.substr(4, MTF::load_le<std::uint16_t>(packed.data() + 2));
    out.append(others);
    packed.remove_prefix(4 + others.size());
  }
  out.resize(std::min(out.size(), most));
  return out;
}

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
  std::size_t room = most_bytes;
  while (rest.size() >= Piece::head_size) {
    Piece piece;
    piece.catalog = rest[0] == 'c';
    piece.seq = static_cast<unsigned char>(rest[1]);
    piece.channel = static_cast<unsigned char>(rest[2]);
    const std::string_view packed =
        rest.substr(Piece::head_size, MTF::load_le<std::uint32_t>(rest.data() + 4));
    piece.bytes = unpack(packed, room);
    room -= piece.bytes.size();
    rest.remove_prefix(Piece::head_size + packed.size());
    pieces.push_back(std::move(piece));
  }
  return pieces;
}

std::string join(const std::vector<Piece>& pieces) {
  std::string out;
  for (const Piece& piece : pieces) {
    char head[Piece::head_size] = {piece.catalog ? 'c' : 'm', static_cast<char>(piece.seq),
                                   static_cast<char>(piece.channel)};
    const std::string packed = pack(piece.bytes);
    MTF::store_le(head + 4, static_cast<std::uint32_t>(packed.size()));
    out.append(head, sizeof head).append(packed);
  }
  return out;
}

Input_Store::Input_Store(const std::uint8_t* data, std::size_t size) : pieces_(split(data, size)) {
  for (const Piece& piece : pieces_) names_.push_back(name_of(piece));
}

bool Input_Store::pieces(std::vector<std::string>& names, std::string&) {
  names = names_;
  return true;
}

std::unique_ptr<MTF::IRandom_Reader> Input_Store::open(const std::string& name,
                                                       std::string& error) {
  const auto found = std::find(names_.begin(), names_.end(), name);
  if (found != names_.end()) {
    return std::make_unique<View_Reader>(pieces_[found - names_.begin()].bytes);
  }
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
