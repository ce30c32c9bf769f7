#include "services/piece_name.h"

#include <charconv>

namespace MTF {
namespace {

constexpr const char* media_ending = ".mtf";
constexpr const char* catalog_ending = ".cat";
constexpr const char* flag_mark = ".f";

std::string join(const std::string& stem, unsigned int seq, unsigned long long channel, bool flag,
                 const char* ending) {
  return stem + '.' + std::to_string(seq) + '.' + std::to_string(channel) +
         (flag ? flag_mark : "") + ending;
}

bool take_ending(std::string& name, const std::string& ending) {
  if (name.size() < ending.size()) return false;
  if (name.compare(name.size() - ending.size(), ending.size(), ending) != 0) return false;
  name.resize(name.size() - ending.size());
  return true;
}

template <class Number>
bool take_number(std::string& name, Number& out) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos) return false;
  const char* first = name.data() + dot + 1;
  const char* last = name.data() + name.size();
  const auto result = std::from_chars(first, last, out);
  if (result.ec != std::errc() || result.ptr != last) return false;
  name.resize(dot);
  return true;
}

}  // namespace

void mtf_name(const std::string& stem, unsigned int seq, unsigned long long channel,
              std::string& out) {
  mtf_name(stem, seq, channel, false, out);
}

void mtf_name(const std::string& stem, unsigned int seq, unsigned long long channel, bool flag,
              std::string& out) {
  out = join(stem, seq, channel, flag, media_ending);
}

void cat_name(const std::string& stem, unsigned int seq, unsigned long long channel,
              std::string& out) {
  cat_name(stem, seq, channel, false, out);
}

void cat_name(const std::string& stem, unsigned int seq, unsigned long long channel, bool flag,
              std::string& out) {
  out = join(stem, seq, channel, flag, catalog_ending);
}

bool parse_piece_name(const std::string& name, Piece_Name& out) {
  std::string rest = name;
  out.catalog = take_ending(rest, catalog_ending);
  if (!out.catalog && !take_ending(rest, media_ending)) return false;
  out.flag = take_ending(rest, flag_mark);
  if (!take_number(rest, out.channel) || !take_number(rest, out.seq) || rest.empty()) return false;
  out.stem = rest;
  // Only the one spelling that the functions above give counts: no leading zeros.
  const char* ending = out.catalog ? catalog_ending : media_ending;
  return join(out.stem, out.seq, out.channel, out.flag, ending) == name;
}

}  // namespace MTF
