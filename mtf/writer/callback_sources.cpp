// How Callback_Source_Producer resolves the host's sources.
#include <ace/ACE.h>
#include <ace/Log_Msg.h>

#include <algorithm>
#include <boost/lexical_cast.hpp>

#include "mtf/writer/callback_source_producer.h"
#include "mtf/writer/file_type.h"
#include "mtf/writer/leaf_name.h"
#include "services/file_path.h"

namespace MTF {
namespace {

constexpr unsigned int root_mode = 0x4000;
constexpr std::size_t no_parent = std::string::npos;

// The length of the parent path, with the separator behind it; no_parent where there is none.
std::size_t parent_length(const std::string& path, char separator) {
  if (separator != '\\' && separator != '/') return no_parent;
  const std::size_t end = path.find_last_not_of(separator) + 1;
  if (end == 0) return !path.empty() && path[0] == '/' ? 1 : no_parent;
  if (separator == '\\' && MTF_FS::is_root_path(path.substr(0, end))) return end;
  std::size_t at = path.rfind(separator, end - 1);
  if (at == std::string::npos) return no_parent;
  while (at > 0 && path[at - 1] == separator) --at;
  return at + 1;
}

void copy_stat(const Callback_Stat& from, _stat64& to) {
  to.st_mode = static_cast<decltype(to.st_mode)>(from.mode);
  to.st_ino = from.ino;
  to.st_nlink = static_cast<decltype(to.st_nlink)>(from.nlink);
  to.st_size = static_cast<decltype(to.st_size)>(from.size);
  to.st_mtime = from.mtime;
}

// An empty component would become a directory without a name.
void squeeze(std::string& path, char separator) {
  const auto doubled = [separator](char a, char b) { return a == separator && b == separator; };
  path.erase(std::unique(path.begin(), path.end(), doubled), path.end());
}

bool is_fifo(const _stat64& stat) {
  return (stat.st_mode & 0xF000) == 0x1000;
}

bool is_socket(const _stat64& stat) {
  constexpr unsigned int socket = 0xC000;
  return (stat.st_mode & socket) == socket;
}

}  // namespace

bool Callback_Source_Producer::resolve(std::list<source_entry>& out) {
  if (sources_ == nullptr || sources_->empty()) return false;
  separator_ = callback_->separator();
  out.clear();
  for (const std::string& source : *sources_) {
    source_entry entry{source, source, {}};
    const Verdict verdict = resolve_source(source, entry);
    if (verdict == Verdict::fail) return false;
    if (verdict == Verdict::take) out.push_back(entry);
  }
  sort(out, separator_);
  drop_covered(out, separator_);
  return !out.empty();
}

Callback_Source_Producer::Verdict Callback_Source_Producer::resolve_source(
    const std::string& source, source_entry& out) {
  Verdict verdict = Verdict::take;
  if (MTF_FS::is_root_path(source)) {
    out.stat.st_mode = root_mode;
    out.stat.st_nlink = 1;
  } else {
    verdict = examine(source, out);
  }
  if (verdict == Verdict::take && is_filtered(source, is_directory(out.stat))) return Verdict::skip;
  return verdict;
}

Callback_Source_Producer::Verdict Callback_Source_Producer::examine(const std::string& source,
                                                                    source_entry& out) {
  Callback_Stat stat;
  if (!callback_->lstat(source.c_str(), stat)) {
    ++skipped_dirs();
    ACE_ERROR((LM_WARNING, ACE_TEXT("Failed to lstat, path: %C, and skipp\n"), source.c_str()));
    return Verdict::skip;
  }
  copy_stat(stat, out.stat);
  if ((is_fifo(out.stat) && !save_links_) || is_socket(out.stat)) return Verdict::skip;
  if (is_directory(out.stat) && source.back() != separator_) out.path += separator_;
  const std::size_t parent = parent_length(source, separator_);
  if (parent == no_parent) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Source has no parent path: %C\n"), source.c_str()));
    const std::string value =
        "(" + boost::lexical_cast<std::string>(static_cast<long long>(parent)) + ")";
    ACE_ERROR((LM_EMERGENCY, ACE_TEXT("Unexpected error in %N:%l, pos%s == -1%s:\n%?\n"),
               value.c_str(), "(-1)"));
    return Verdict::fail;
  }
  out.name = source.substr(0, parent);
  squeeze(out.path, separator_);
  std::string vol;
  std::string dir;
  if (MTF_FS::path_component(out.path, separator_, vol, dir) && !has_leaf_names(dir, separator_)) {
    ACE_ERROR((LM_ERROR, ACE_TEXT("Source is no path of names: %C\n"), source.c_str()));
    return Verdict::fail;
  }
  return Verdict::take;
}

}  // namespace MTF
