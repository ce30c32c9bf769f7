#include "mtf/reader/job_metadata.h"

#include <algorithm>
#include <memory>
#include <optional>

#include "mtf/reader/catalog_walker.h"
#include "services/piece_name.h"

namespace MTF {
namespace {

constexpr std::size_t most_metadata = 0x100000;
constexpr unsigned long long most_channels = 0x10000;

// The number of channels as the metadata of a catalog gives it; 0 for a job of one channel.
std::optional<unsigned long long> stored_channels(IPiece_Store& store, const std::string& catalog) {
  Metadata_Record record;
  if (!stored_metadata(store, catalog, record) || record.channels > most_channels) return {};
  return record.channels;
}

}  // namespace

bool stored_metadata(IPiece_Store& store, const std::string& catalog, Metadata_Record& out) {
  std::string error;
  const std::unique_ptr<IRandom_Reader> reader = store.open(catalog, error);
  if (reader == nullptr) return false;
  Piece_Window window(*reader, Piece_Window::look_capacity);
  const Fault_At ignore = [](unsigned long long, const std::string&) {};
  Catalog_Walker walker(window, 0, ignore);
  walker.open();
  if (walker.metadata_length() == 0 || walker.metadata_length() > most_metadata) return false;
  const auto size = static_cast<std::size_t>(walker.metadata_length());
  const char* text = window.view(walker.metadata_position(), size);
  return text != nullptr && read_metadata(std::string(text, size), out);
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
