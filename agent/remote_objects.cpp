#include "agent/remote_objects.h"

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "agent/stem.h"
#include "services/piece_name.h"

namespace agent {
namespace {

constexpr const char* job_ending = ".unfinished";
constexpr const char* piece_ending = ".rebuild";

bool cut_ending(const std::string& name, const std::string& ending, std::string& rest) {
  if (name.size() <= ending.size() ||
      name.compare(name.size() - ending.size(), ending.size(), ending) != 0) {
    return false;
  }
  rest = name.substr(0, name.size() - ending.size());
  return true;
}

}  // namespace

bool parse_listing(const std::string& json, std::vector<Remote_Object>& objects) {
  objects.clear();
  const nlohmann::json document = nlohmann::json::parse(json, nullptr, false);
  const auto list = document.is_object() ? document.find("list") : document.end();
  if (list == document.end()) return false;
  if (list->is_null()) return true;
  if (!list->is_array()) return false;
  for (const nlohmann::json& each : *list) {
    const auto name = each.find("Name");
    if (name == each.end() || !name->is_string()) return false;
    Remote_Object object;
    object.name = name->get<std::string>();
    const auto size = each.find("Size");
    object.sized = size != each.end() && size->is_number_integer() && size->get<long long>() >= 0;
    if (object.sized) object.size = size->get<unsigned long long>();
    const auto changed = each.find("ModTime");
    if (changed != each.end() && changed->is_string()) object.changed = changed->get<std::string>();
    objects.push_back(std::move(object));
  }
  return true;
}

std::string Mark::name() const {
  return piece.empty() ? stem + '.' + std::to_string(seq) + job_ending : piece + piece_ending;
}

bool Mark::covers(const std::string& name) const {
  MTF::Piece_Name parsed;
  if (!piece.empty()) return name == piece;
  return MTF::parse_piece_name(name, parsed) && parsed.stem == stem && parsed.seq == seq;
}

bool parse_mark(const std::string& name, Mark& out) {
  out = Mark();
  MTF::Piece_Name parsed;
  if (cut_ending(name, piece_ending, out.piece)) {
    if (!MTF::parse_piece_name(out.piece, parsed)) return false;
    out.stem = parsed.stem;
    out.seq = parsed.seq;
    return true;
  }
  std::string job;
  if (!cut_ending(name, job_ending, job)) return false;
  const std::size_t dot = job.find('.');
  if (dot == std::string::npos) return false;
  out.stem = job.substr(0, dot);
  out.seq = static_cast<unsigned int>(std::strtoul(job.c_str() + dot + 1, nullptr, 10));
  return stem_fault(out.stem).empty() && out.seq <= last_seq && out.name() == name;
}

std::vector<Mark> marks_among(const std::vector<Remote_Object>& objects, const std::string& stem) {
  std::vector<Mark> marks;
  for (const Remote_Object& object : objects) {
    Mark mark;
    if (parse_mark(object.name, mark) && (stem.empty() || mark.stem == stem)) marks.push_back(mark);
  }
  return marks;
}

}  // namespace agent
