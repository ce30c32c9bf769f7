#include "mtf/reader/job_metadata.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <sstream>

#include "mtf/reader/block_loader.h"
#include "mtf/reader/catalog_walker.h"
#include "services/piece_name.h"

namespace MTF {
namespace {

constexpr std::size_t most_metadata = 0x100000;
constexpr unsigned long long most_channels = 0x10000;
constexpr unsigned int farthest_set = 16;       // physical blocks in front of the set, at most
constexpr unsigned int set_incremental = 0x10;  // of the SSET attributes

// The number of channels as the metadata of a catalog gives it; 0 for a job of one channel.
std::optional<unsigned long long> stored_channels(IPiece_Store& store, const std::string& catalog) {
  Metadata_Record record;
  if (!stored_metadata(store, catalog, record) || record.channels > most_channels) return {};
  return record.channels;
}

bool copy_text(Piece_Window& window, unsigned long long position, unsigned long long length,
               std::string& text) {
  if (length == 0 || length > most_metadata) return false;
  const auto size = static_cast<std::size_t>(length);
  const char* bytes = window.view(position, size);
  if (bytes != nullptr) text.assign(bytes, size);
  return bytes != nullptr;
}

bool catalog_text(IPiece_Store& store, const std::string& catalog, std::string& text) {
  std::string error;
  const std::unique_ptr<IRandom_Reader> reader = store.open(catalog, error);
  if (reader == nullptr) return false;
  Piece_Window window(*reader, Piece_Window::look_capacity);
  const Fault_At ignore = [](unsigned long long, const std::string&) {};
  Catalog_Walker walker(window, 0, ignore);
  walker.open();
  return copy_text(window, walker.metadata_position(), walker.metadata_length(), text);
}

// The SSET block of a media, which stands behind the TAPE block and a filemark. Its bytes go to
// `bytes`.
bool find_set(Piece_Window& window, std::string& bytes, Media_Block& block) {
  Media_Geometry geometry;
  if (load_block(window, 0, bytes, block) && block.view.header.type == block_tape) {
    read_geometry(block.view, geometry);
  }
  for (unsigned int pba = 1; pba <= farthest_set; ++pba) {
    if (load_block(window, pba * geometry.physical, bytes, block) &&
        block.view.header.type == block_sset) {
      return true;
    }
  }
  return false;
}

// It stands behind the SSET block.
bool media_text(IPiece_Store& store, const std::string& media, std::string& text) {
  std::string error, bytes;
  const std::unique_ptr<IRandom_Reader> reader = store.open(media, error);
  if (reader == nullptr) return false;
  Piece_Window window(*reader, Piece_Window::look_capacity);
  Media_Block block;
  if (!find_set(window, bytes, block)) return false;
  const unsigned long long position = block.position + block.view.bytes.size();
  const char* data = window.view(position, stream_header_size);
  if (data == nullptr) return false;
  const Stream_Header header = read_stream_header(data);
  return header.intact && header.id == stream_meta &&
         copy_text(window, position + stream_header_size, header.length, text);
}

}  // namespace

bool stored_metadata(IPiece_Store& store, const std::string& catalog, Metadata_Record& out) {
  std::string text;
  return catalog_text(store, catalog, text) && read_metadata(text, out);
}

unsigned int stored_base(const Metadata_Record& record, unsigned int seq) {
  const auto found = record.host.find(base_seq_key);
  unsigned int base = 0;
  if (found != record.host.end()) std::istringstream(found->second) >> base;
  return base < seq ? base : 0;
}

bool find_metadata(IPiece_Store& store, const Job_Pieces& job, unsigned long long channel,
                   std::string& text) {
  std::vector<unsigned long long> channels = job.channels;
  channels.insert(channels.begin(), channel);
  Metadata_Record record;
  for (const unsigned long long each : channels) {
    std::string media, catalog;
    mtf_name(job.stem, job.seq, each, media);
    cat_name(job.stem, job.seq, each, catalog);
    if ((media_text(store, media, text) && read_metadata(text, record)) ||
        (catalog_text(store, catalog, text) && read_metadata(text, record))) {
      return true;
    }
  }
  return false;
}

bool media_says_full(IPiece_Store& store, const Job_Pieces& job) {
  for (const unsigned long long channel : job.channels) {
    std::string media, error, bytes;
    mtf_name(job.stem, job.seq, channel, media);
    const std::unique_ptr<IRandom_Reader> reader = store.open(media, error);
    if (reader == nullptr) continue;
    Piece_Window window(*reader, Piece_Window::look_capacity);
    Media_Block block;
    if (!find_set(window, bytes, block)) continue;
    return (block.view.get<unsigned int>(sset_at::sset_attributes) & set_incremental) == 0;
  }
  return false;
}

std::vector<unsigned long long> expected_channels(IPiece_Store& store, const Job_Pieces& job) {
  if (job.channels.empty() || job.channels.front() == 0) return {0};
  unsigned long long count = std::min(job.channels.back(), most_channels);
  for (const unsigned long long channel : job.channels) {
    std::string name;
    cat_name(job.stem, job.seq, channel, name);
    const auto stored = stored_channels(store, name);
    if (!stored || *stored == 0) continue;
    count = *stored;
    break;
  }
  std::vector<unsigned long long> channels;
  for (unsigned long long channel = 1; channel <= count; ++channel) channels.push_back(channel);
  return channels;
}

std::vector<std::string> missing_pieces(IPiece_Store& store, const Job_Pieces& job) {
  std::vector<std::string> names;
  for (const unsigned long long channel : expected_channels(store, job)) {
    if (std::binary_search(job.channels.begin(), job.channels.end(), channel)) continue;
    for (const bool catalog : {false, true}) {
      std::string name;
      catalog ? cat_name(job.stem, job.seq, channel, name)
              : mtf_name(job.stem, job.seq, channel, name);
      names.push_back(name);
    }
  }
  return names;
}

}  // namespace MTF
