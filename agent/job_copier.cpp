#include "agent/job_copier.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include "agent/text.h"
#include "services/content_hash.h"
#include "services/piece_name.h"

namespace agent {
namespace {

constexpr std::size_t block_size = 1 << 20;

bool is_catalog(const std::string& name) {
  MTF::Piece_Name piece;
  return MTF::parse_piece_name(name, piece) && piece.catalog;
}

}  // namespace

bool Job_Copier::open(const std::string& stem, std::string& error) {
  return find(from_, stem, source_, error) && find(to_, stem, target_, error);
}

bool Job_Copier::find(IStorage& storage, const std::string& stem, By_Seq& out, std::string& error) {
  std::vector<Stored_Piece> pieces;
  if (!storage.list(pieces, error)) return false;
  for (const Stored_Piece& each : pieces) {
    MTF::Piece_Name piece;
    if (MTF::parse_piece_name(each.name, piece) && piece.stem == stem) {
      out[piece.seq][each.name] = each.size;
    }
  }
  return true;
}

std::vector<std::string> Job_Copier::missing(unsigned int seq) const {
  std::vector<std::string> names;
  const auto there = target_.find(seq);
  for (const auto& [name, size] : source_.at(seq)) {
    if (there == target_.end() || there->second.count(name) == 0) names.push_back(name);
  }
  sort_catalogs_last(names);
  return names;
}

unsigned long long Job_Copier::missing_bytes(unsigned int seq) const {
  unsigned long long bytes = 0;
  for (const std::string& name : missing(seq)) bytes += source_.at(seq).at(name);
  return bytes;
}

Job_Copier::Outcome Job_Copier::copy(unsigned int seq, std::string& error) {
  const Outcome compared = compare(seq, error);
  if (compared != Outcome::copied) return compared;
  const std::vector<std::string> names = missing(seq);
  if (names.empty()) return Outcome::there;
  std::vector<std::string> begun;
  bool done = true;
  for (const std::string& name : names) {
    done = copy_piece(name, error);
    if (!done) break;
    begun.push_back(name);
  }
  if (done && to_.name_pieces(names, error)) return Outcome::copied;
  std::string ignored;
  std::reverse(begun.begin(), begun.end());
  to_.remove(begun, ignored);
  return Outcome::failed;
}

// `copied` if nothing stands in the way.
Job_Copier::Outcome Job_Copier::compare(unsigned int seq, std::string& error) const {
  const auto there = target_.find(seq);
  if (there == target_.end()) return Outcome::copied;
  const Pieces& wanted = source_.at(seq);
  const bool complete = missing(seq).empty();
  for (const auto& [name, size] : there->second) {
    const auto original = wanted.find(name);
    bool same = original != wanted.end() && original->second == size;
    if (same && (!complete || is_catalog(name)) && !is_same(name, same, error)) {
      return Outcome::failed;
    }
    if (same) continue;
    error = to_.title() + " has another job " + std::to_string(seq) + ": " + name + " differs";
    return Outcome::refused;
  }
  return Outcome::copied;
}

bool Job_Copier::is_same(const std::string& name, bool& same, std::string& error) const {
  std::string hashes[2];
  IStorage* const storages[] = {&from_, &to_};
  for (int i = 0; i < 2; ++i) {
    const std::unique_ptr<MTF::IRandom_Reader> reader = storages[i]->open(name, error);
    if (reader == nullptr || !hash(*reader, name, {}, hashes[i], error)) return false;
  }
  same = hashes[0] == hashes[1];
  return true;
}

bool Job_Copier::copy_piece(const std::string& name, std::string& error) {
  const std::unique_ptr<MTF::IRandom_Reader> source = from_.open(name, error);
  if (source == nullptr) return false;
  std::string written, read;
  {
    const std::unique_ptr<IPiece_Sink> sink = to_.create(name, error);
    if (sink == nullptr) return false;
    const auto take = [&](const char* data, std::size_t size) {
      copied_ += size;
      return sink->write(data, size);
    };
    if (!hash(*source, name, take, written, error) || !sink->finish()) {
      if (!sink->error().empty()) error = sink->error();
      return false;
    }
  }
  const std::unique_ptr<MTF::IRandom_Reader> copy = to_.reopen(name, error);
  bool same = copy != nullptr && hash(*copy, name, {}, read, error);
  if (same && read != written) {
    error = name + ": " + to_.title() + " gives back other bytes than were written";
    same = false;
  }
  std::string ignored;
  if (!same) to_.remove({name}, ignored);
  return same;
}

// Reads all of a piece; `take`, which may be empty, gets it too.
bool Job_Copier::hash(MTF::IRandom_Reader& reader, const std::string& name,
                      const std::function<bool(const char* data, std::size_t size)>& take,
                      std::string& hash, std::string& error) const {
  MTF::Content_Hash sum;
  std::vector<char> block(block_size);
  const unsigned long long size = reader.size();
  for (unsigned long long at = 0; at < size;) {
    if (!go_on_()) {
      error = "the copy was cancelled";
      return false;
    }
    const long long count = reader.read_at(at, block.data(), block.size());
    if (count <= 0) {
      error = count < 0 ? error_text(name, errno) : name + ": it became shorter";
      return false;
    }
    sum.add(block.data(), static_cast<std::size_t>(count));
    if (take && !take(block.data(), static_cast<std::size_t>(count))) return false;
    at += static_cast<unsigned long long>(count);
  }
  hash = sum.value();
  return true;
}

}  // namespace agent
