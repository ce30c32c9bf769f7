#include "agent/work_directory.h"

#include <cerrno>

#include "agent/paths.h"
#include "agent/text.h"
#include "platform/storage_directory.h"
#include "platform/tree.h"
#include "services/settings.h"

namespace agent {
namespace {

// The library makes no name with an `@` in it, so what starts like this is this program's.
constexpr const char* name_start = "mtf-agent@";
constexpr unsigned int owner_only = 0700;

const char* words(platform::Danger danger) {
  switch (danger) {
    case platform::Danger::link:
      return "it is a symbolic link: name the directory itself";
    case platform::Danger::foreign:
      return "it belongs to another user";
    case platform::Danger::open:
      return "every user may change what is in it";
    default:
      return nullptr;
  }
}

}  // namespace

bool Work_Directory::open(const std::string& root, bool closed, const std::string& id,
                          std::string& error) {
  const std::string title = "temporary directory '" + escape_controls(root) + '\'';
  int fault = closed ? platform::private_directory(root) ? 0 : errno
                     : platform::make_dirs(root, owner_only);
  // A file in this place is no danger; a link is, since it may lead to a directory.
  const platform::Danger danger = platform::danger_of(root);
  const bool counts = fault != ENOTDIR || danger == platform::Danger::link;
  if (counts && words(danger) != nullptr) {
    error = title + ": " + words(danger);
    return false;
  }
  if (fault == 0) {
    clear(root);
    if (!held_.make(root + '/' + name_start + id)) fault = errno;
  }
  if (fault != 0) error = error_text(title, fault);
  return fault == 0;
}

// A directory that can't be examined or removed is left to a later job: this one saves anyway.
void Work_Directory::clear(const std::string& root) {
  platform::Storage_Directory directory;
  std::vector<std::string> names;
  if (!directory.open(root, false) || !directory.names(names)) return;
  for (const std::string& name : names) {
    if (name.rfind(name_start, 0) != 0) continue;
    platform::Held_Directory left;
    const std::string path = root + '/' + name;
    if (left.take_over(path) && left.remove()) cleared_.push_back(path);
  }
}

// No other living job has the same id: the lock of the stem on this storage is ours.
bool open_work_directory(const IStorage& storage, const std::string& stem, const std::string& tmp,
                         Work_Directory& work, std::string& error) {
  const std::string& given = tmp.empty() ? MTF::MTF_Params::instance().job_tmp_dir() : tmp;
  std::string root, identity;
  if (!absolute_path(given, root)) {
    error = "the path '" + escape_controls(given) + "' can't be made absolute";
    return false;
  }
  return storage.identity(identity, error) &&
         work.open(root, tmp.empty(), identity + '@' + stem, error);
}

}  // namespace agent
