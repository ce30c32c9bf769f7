// Changes pieces where their structure is, and makes the checksums right again most of the time.
#include <algorithm>
#include <cstring>
#include <random>

#include "fuzz/marks.h"
#include "fuzz/pieces.h"
#include "services/bytes.h"
#include "services/text.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace fuzz {
namespace {

constexpr std::size_t header_window = 128;

// What has a meaning in a name, or had one in an attack on some other program.
const std::string_view name_parts[] = {
    {"\0", 1},      "/",    "\\",  ".", "..", "../", "..\\", "C:", "link", "/etc/", "\xEF\x81\x9C",
    "\xEF\x81\x9B", "\xFF", "hard"};

class Mutation {
 public:
  Mutation(const std::uint8_t* data, std::size_t size, unsigned int seed)
      : random_(seed), pieces_(split(data, size)) {}

  bool empty() const { return pieces_.empty(); }

  std::string run() {
    do {
      change();
    } while (one_in(2));
    return join(pieces_);
  }

 private:
  std::size_t below(std::size_t limit) { return limit == 0 ? 0 : random_() % limit; }
  bool one_in(unsigned int n) { return random_() % n == 0; }

  void change();
  void change_header(std::string& text, const std::vector<Mark>& marks, std::size_t mark);
  void set_field(std::string& text, std::size_t at);
  void copy_over(std::string& text, const std::vector<Mark>& marks, std::size_t mark);
  void change_records(std::string& text, const std::vector<Mark>& marks, std::size_t mark);
  void change_name(const std::string& catalog, const Mark& record);
  void change_entry(std::size_t piece, const std::vector<Mark>& marks, std::size_t mark);

  std::minstd_rand random_;
  std::vector<Piece> pieces_;
};

void Mutation::change() {
  const std::size_t piece = below(pieces_.size());
  std::string& text = pieces_[piece].bytes;
  const std::vector<Mark> marks = marks_of(text, pieces_[piece].catalog);
  if (marks.empty()) return;
  const std::size_t mark = below(marks.size());
  const bool record = marks[mark].kind == Mark::Kind::record;
  switch (below(record ? 5 : 3)) {
    case 0:
      return change_header(text, marks, mark);
    case 1:
      set_field(text, marks[mark].at);
      if (!one_in(8)) seal(text, marks, mark);
      return;
    case 2:
      return record ? change_records(text, marks, mark) : copy_over(text, marks, mark);
    case 3:
      return change_name(text, marks[mark]);
    default:
      return change_entry(piece, marks, mark);
  }
}

void Mutation::change_header(std::string& text, const std::vector<Mark>& marks, std::size_t mark) {
  const std::size_t at = marks[mark].at;
  const std::size_t size = std::min(header_window, text.size() - at);
  LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(&text[at]), size, size);
  if (!one_in(8)) seal(text, marks, mark);
}

// An integer somewhere in a header, at one of the edges.
void Mutation::set_field(std::string& text, std::size_t at) {
  const std::size_t width = std::size_t{1} << below(4);
  at += below(header_window / 2) / 2 * 2;
  if (at + width > text.size()) return;
  const unsigned long long edges[] = {
      0, 1, ~0ULL, ~0ULL >> 1, 0x7FFFFFFF, 0xFFFF, 0x1000000, below(64), text.size(), at, random_(),
  };
  char bytes[8];
  MTF::store_le(bytes, edges[below(std::size(edges))] - below(2));
  text.replace(at, width, bytes, width);
}

// What stands at one mark also stands at another one; nothing moves.
void Mutation::copy_over(std::string& text, const std::vector<Mark>& marks, std::size_t mark) {
  const std::size_t from = marks[below(marks.size())].at;
  const std::size_t to = marks[mark].at;
  const std::size_t size =
      std::min({below(2 * header_window), text.size() - from, text.size() - to});
  std::memmove(&text[to], &text[from], size);
}

// Takes a record away, doubles it, or cuts the catalog off.
void Mutation::change_records(std::string& text, const std::vector<Mark>& marks, std::size_t mark) {
  const std::size_t at = marks[mark].at;
  const std::size_t end = mark + 1 < marks.size() ? marks[mark + 1].at : text.size();
  switch (below(3)) {
    case 0:
      text.erase(at, end - at);
      return;
    case 1:
      text.insert(marks[below(marks.size())].at, text.substr(at, end - at));
      return;
    default:
      text.resize(at + below(end - at));
  }
}

// A name counts only if the catalog and the media agree on it, so it changes everywhere.
void Mutation::change_name(const std::string& catalog, const Mark& record) {
  const std::size_t length = MTF::load_le<unsigned short>(&catalog[record.at]);
  constexpr std::size_t fixed = 73;
  if (length <= fixed || record.at + length > catalog.size()) return;
  const std::string old = catalog.substr(record.at + fixed, length - fixed);
  std::string name = old;
  const std::string_view part = name_parts[below(std::size(name_parts))];
  const std::size_t at = one_in(2) ? 0 : below(name.size());
  name.replace(at, part.size(), part);
  name.resize(old.size(), part.back());
  for (Piece& piece : pieces_) {
    std::string& text = piece.bytes;
    for (std::size_t found = 0; (found = text.find(old, found)) != std::string::npos;
         found += old.size()) {
      text.replace(found, old.size(), name);
    }
  }
}

// A type or a size that the catalog and the block on the media agree on.
void Mutation::change_entry(std::size_t piece, const std::vector<Mark>& marks, std::size_t mark) {
  std::string& catalog = pieces_[piece].bytes;
  const std::size_t at = marks[mark].at;
  if (at + 64 > catalog.size()) return;
  const auto address = MTF::load_le<unsigned long long>(&catalog[at + 8]);
  const auto type = one_in(2);
  const unsigned int types[] = {MTF::block_file, MTF::block_hlnk, MTF::block_slnk, MTF::block_devb,
                                MTF::block_dirb, MTF::block_volb, MTF::block_pdat};
  const unsigned int new_type = types[below(std::size(types))];
  const unsigned long long new_size = one_in(2) ? below(64) : ~0ULL >> below(64);
  const auto change = [&](std::string& text, std::size_t type_at, std::size_t size_at) {
    if (type) {
      MTF::store_le(&text[type_at], new_type);
    } else {
      MTF::store_le(&text[size_at], new_size);
    }
  };
  change(catalog, at + 2, at + 16);
  seal(catalog, marks, mark);
  for (std::size_t i = 0; i < pieces_.size(); ++i) {
    if (pieces_[i].catalog || pieces_[i].channel != pieces_[piece].channel) continue;
    std::string& media = pieces_[i].bytes;
    if (address >= media.size() / 512) continue;
    const std::size_t block = address * 512;
    change(media, block, block + 12);
    seal(media, {{Mark::Kind::block, block}}, 0);
  }
}

}  // namespace
}  // namespace fuzz

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned int seed) {
  fuzz::Mutation mutation(data, size, seed);
  if (mutation.empty() || seed % 8 == 0) return LLVMFuzzerMutate(data, size, max_size);
  const std::string out = mutation.run();
  const std::size_t kept = std::min(out.size(), max_size);
  std::memcpy(data, out.data(), kept);
  return kept;
}
