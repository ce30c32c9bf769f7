#include "fuzz/marks.h"

#include <algorithm>
#include <iterator>

#include "mtf/reader/stream_view.h"
#include "services/bytes.h"
#include "services/checksum.h"
#include "services/text.h"

namespace fuzz {
namespace {

constexpr std::size_t grid = 512;
constexpr std::size_t summary_size = 96;
constexpr std::size_t record_type_at = 2;

// Bytes under the checksum, which stands right behind them.
std::size_t summed_size(Mark::Kind kind) {
  switch (kind) {
    case Mark::Kind::block:
      return 50;
    case Mark::Kind::stream:
      return 20;
    case Mark::Kind::frame:
      return 22;
    case Mark::Kind::summary:
      return 94;
    case Mark::Kind::record:
      return 62;
  }
  return 0;
}

// Lists of its own, so that the library's aren't called for each word of a piece.
constexpr unsigned int record_types[] = {MTF::block_volb, MTF::block_dirb, MTF::block_file,
                                         MTF::block_pdat, MTF::block_hlnk, MTF::block_slnk,
                                         MTF::block_devb, MTF::block_fend};
constexpr unsigned int frame_types[] = {MTF::block_tape, MTF::block_sset, MTF::block_cfil,
                                        MTF::block_eset, MTF::block_eotm, MTF::block_sfmb};
constexpr unsigned int stream_ids[] = {
    MTF::stream_stan, MTF::stream_spar, MTF::stream_spad, MTF::stream_nacl, MTF::stream_ntea,
    MTF::stream_ntoi, MTF::stream_ntpr, MTF::stream_ntrp, MTF::stream_adat, MTF::stream_csum,
    MTF::stream_fnam, MTF::stream_pnam, MTF::stream_stat, MTF::stream_ctex, MTF::stream_link,
    MTF::stream_tfdd, MTF::stream_tsmp, MTF::stream_meta};

template <std::size_t N>
bool is_one_of(const unsigned int (&ids)[N], unsigned int id) {
  return std::find(std::begin(ids), std::end(ids), id) != std::end(ids);
}

bool is_record(unsigned int type) {
  return is_one_of(record_types, type);
}

bool is_block(unsigned int type) {
  return is_record(type) || is_one_of(frame_types, type);
}

void seal_header(std::string& bytes, const Mark& mark) {
  const std::size_t size = summed_size(mark.kind);
  if (mark.at + size + 2 > bytes.size()) return;
  MTF::store_le(&bytes[mark.at + size], MTF::header_checksum(&bytes[mark.at], size));
}

bool is_checksum(const std::string& bytes, const Mark& mark) {
  return mark.kind == Mark::Kind::stream &&
         MTF::load_le<unsigned int>(&bytes[mark.at]) == MTF::stream_csum;
}

unsigned int id_at(const std::string& bytes, std::size_t at) {
  return MTF::load_le<unsigned int>(&bytes[at]);
}

std::vector<Mark> catalog_marks(const std::string& bytes) {
  std::vector<Mark> marks{{Mark::Kind::summary, 0}, {Mark::Kind::stream, summary_size}};
  for (std::size_t at = summary_size + record_type_at; at + 4 <= bytes.size(); ++at) {
    if (is_record(id_at(bytes, at))) marks.push_back({Mark::Kind::record, at - record_type_at});
  }
  if (bytes.size() <= summary_size) marks.clear();
  return marks;
}

std::vector<Mark> media_marks(const std::string& bytes) {
  std::vector<Mark> marks;
  for (std::size_t at = 0; at + 4 <= bytes.size(); at += MTF::stream_alignment) {
    if (at % grid == 0 && is_block(id_at(bytes, at))) {
      marks.push_back({Mark::Kind::block, at});
    } else if (is_one_of(stream_ids, id_at(bytes, at))) {
      marks.push_back({Mark::Kind::stream, at});
    }
  }
  for (std::size_t at = 0; (at = bytes.find("FH", at)) != std::string::npos; ++at) {
    marks.push_back({Mark::Kind::frame, at});
  }
  std::sort(marks.begin(), marks.end(), [](const Mark& a, const Mark& b) { return a.at < b.at; });
  return marks;
}

}  // namespace

std::vector<Mark> marks_of(const std::string& bytes, bool catalog) {
  return catalog ? catalog_marks(bytes) : media_marks(bytes);
}

// The fill between a stream's data and its CSUM stream is zero and changes no sum.
void seal(std::string& bytes, const std::vector<Mark>& marks, std::size_t mark) {
  seal_header(bytes, marks[mark]);
  std::size_t stream = mark;
  while (stream > 0 && marks[stream].kind == Mark::Kind::frame) --stream;
  std::size_t next = mark + 1;
  while (next < marks.size() && marks[next].kind == Mark::Kind::frame) ++next;
  if (next == marks.size() || marks[stream].kind != Mark::Kind::stream) return;
  const std::size_t data = marks[stream].at + MTF::stream_header_size;
  const std::size_t sum = marks[next].at + MTF::stream_header_size;
  if (!is_checksum(bytes, marks[next]) || data > marks[next].at || sum + 4 > bytes.size()) return;
  MTF::Checksum_Calculator checksum;
  checksum.calc(&bytes[data], marks[next].at - data, false);
  checksum.calc(nullptr, 0, true);
  MTF::store_le(&bytes[sum], checksum.checksum());
}

}  // namespace fuzz
