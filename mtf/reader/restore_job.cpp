#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <set>

#include "mtf/reader/block_loader.h"
#include "mtf/reader/content_reader.h"
#include "mtf/reader/earlier_media.h"
#include "mtf/reader/media_tree.h"
#include "mtf/reader/security_view.h"
#include "mtf/reader/wanted_paths.h"
#include "platform/native_path.h"
#include "platform/restore_tree.h"

namespace MTF {
namespace {

using Make = platform::Restore_Tree::Make;

// Splits a system path into the native names that lead to it from the directory restored to: first
// `X` for the volume `X:`, or no name for `/`. False if the path doesn't start with a volume.
bool native_names(const std::string& path, std::vector<std::string>& names) {
  names.clear();
  std::size_t end = path.find('\\');
  const std::string volume = path.substr(0, end);
  if (!platform::is_volume(volume)) return false;
  if (volume != "/") names.push_back(volume.substr(0, 1));
  while (end != std::string::npos) {
    const std::size_t start = end + 1;
    end = path.find('\\', start);
    names.push_back(platform::native_name(path.substr(start, end - start)));
  }
  return true;
}

// What is kept of directories until the end, in bytes.
constexpr std::size_t most_kept = 0x1000000;

// What a directory gets when all that is below it is there.
struct Kept_Attributes {
  std::size_t memory() const { return sizeof *this + content.attributes.size(); }

  Content content;
  long long mtime = 0;  // seconds since 1970; 0 where there is none
};

// The directory that the next files of the catalog belong to.
struct Place {
  Tree_Entry directory;  // or a volume
  bool checked = false;
  bool right = true;
  bool fault_since = false;  // what the catalog doesn't tell may be a directory
  unsigned int id = 0;       // of the directory's block
};

// `content` must outlive what it gives.
platform::Restore_Attributes attributes_of(const Content& content) {
  platform::Restore_Attributes attributes;
  attributes.length = content.length;
  attributes.exact_acl = content.has_security;
  if (content.stat) {
    attributes.owner = {content.stat->uid, content.stat->gid,
                        static_cast<unsigned int>(content.stat->mode)};
  }
  std::vector<Extended_Attribute> extended;
  if (!content.attributes.empty()) read_attributes(content.attributes, extended);
  for (Extended_Attribute& each : extended) {
    attributes.extended.emplace_back(std::move(each.name), each.value);
  }
  return attributes;
}

// True for what further names may lead to. The blocks of a media alone don't tell it.
bool may_be_first(const Tree_Entry& item) {
  const unsigned int type = item.entry.type;
  return item.first_name ||
         (item.placed && (type == block_file || type == block_slnk || type == block_devb));
}

class Job_Restorer {
 public:
  Job_Restorer(IPiece_Store& store, const Job_Pieces& job, const Restore_Options& options,
               const Fault_Sink& on_fault, const Problem_Sink& on_problem)
      : store_(store),
        job_(job),
        options_(options),
        on_fault_(on_fault),
        on_problem_(on_problem),
        wanted_(options.paths) {}

  Restore_Summary run();

 private:
  void take(const Tree_Entry& item);
  void note_above(const Job_Entry& entry);
  bool has_its_place(const Job_Entry& entry, std::string& why);
  bool enter(const Job_Entry& entry, bool is_directory, Make make);
  void restore_directory(const Tree_Entry& item);
  bool is_place_right();
  bool is_in_last_directory(const Job_Entry& entry, const Media_Block& block) const;
  void restore_entry(const Tree_Entry& item);
  void restore_further_name(const Tree_Entry& item);
  bool is_directory_known(const Tree_Entry& item, const Media_Block& block);
  bool restore_as(const Tree_Entry& content, const Job_Entry& entry);
  bool restore_node(const Content& content, const Job_Entry& entry, long long mtime);
  void note_restored(const std::string& first);
  Media_File* find_block(const Tree_Entry& item, Media_Block& block, std::string& why);
  bool write_content(Media_File& media, const Media_Block& block, const Job_Entry& entry);
  Media_File* media_of(const Job_Entry& entry, std::string& why);
  void finish_directories();
  void finish_directory(const Tree_Entry& item);
  void set_attributes(const Job_Entry& entry, const Kept_Attributes& kept);

  // Tells what could not be set of the last file or directory.
  void tell_left_out(const Job_Entry& entry) {
    for (const std::string& attribute : tree_.left_out()) {
      tell(entry, "its extended attribute " + attribute);
    }
    if (tree_.owner_error() == 0) return;
    if (summary_.without_owner == 0) summary_.owner_fault = std::strerror(tree_.owner_error());
    ++summary_.without_owner;
  }
  void tell(const Job_Entry& entry, const std::string& why) {
    if (on_problem_) on_problem_(platform::display_path(entry.path), why);
  }
  void fail(const Job_Entry& entry, const std::string& why) {
    ++summary_.failed;
    tell(entry, why);
  }
  bool failed(const Job_Entry& entry, const std::string& why) { return fail(entry, why), false; }

  // The first name of a file that has several.
  struct First_Name {
    Tree_Entry item;
    std::vector<std::string> names;  // native, of what has the content by now; empty at first
    platform::File_Identity identity;
  };

  IPiece_Store& store_;
  const Job_Pieces& job_;
  const Restore_Options& options_;
  const Fault_Sink& on_fault_;
  const Problem_Sink& on_problem_;
  Wanted_Paths wanted_;
  Restore_Summary summary_;
  Place place_;
  platform::Restore_Tree tree_;
  std::vector<std::string> names_;                      // native, of the entry at hand
  std::map<unsigned long long, Earlier_Media> medias_;  // by channel
  std::map<std::string, std::string> volumes_;          // by their name below the root
  std::map<std::string, First_Name> first_names_;       // by path
  // What directories get at the end, by path, so that their blocks needn't be looked for again.
  std::map<std::string, Kept_Attributes> kept_;
  std::size_t kept_size_ = 0;
  std::set<std::string> above_;  // directories above the paths asked for, missing ahead of the run
};

Restore_Summary Job_Restorer::run() {
  const int error = tree_.open(options_.to);
  if (error != 0) {
    ++summary_.failed;
    if (on_problem_) on_problem_(options_.to, std::strerror(error));
    return summary_;
  }
  // The entry that can't be read may have been a directory. Then the files behind it would land in
  // the directory before it.
  const Fault_Sink on_fault = [this](const Fault& fault) {
    place_.fault_since = true;
    if (on_fault_) on_fault_(fault);
  };
  const auto on_entry = [this](const Tree_Entry& item) { take(item); };
  walk_tree(store_, job_, options_.from_media, on_entry, on_fault);
  summary_.not_found = wanted_.not_met();
  finish_directories();
  return summary_;
}

void Job_Restorer::take(const Tree_Entry& item) {
  const Job_Entry& entry = item.entry;
  if (entry.type == block_volb || entry.type == block_dirb) place_ = Place{item};
  if (may_be_first(item)) first_names_[entry.path] = {item, {}, {}};
  if (!wanted_.take(entry.path)) {
    if (entry.type == block_dirb && !item.again) note_above(entry);
    return;
  }
  switch (entry.type) {
    case block_volb:
      if (!item.again) enter(entry, true, Make::shared);
      break;
    case block_dirb:
      restore_directory(item);
      break;
    case block_file:
    case block_slnk:
    case block_devb:
      restore_entry(item);
      break;
    case block_hlnk:
      restore_further_name(item);
      break;
    case block_pdat:  // data for the host, no part of the tree
      break;
    default:
      fail(entry, "entries of type " + block_word(entry.type) + " can't be restored");
  }
}

// A directory that is made on the way to a path gets its attributes when all is there; one that the
// user had stays as it is.
void Job_Restorer::note_above(const Job_Entry& entry) {
  if (!wanted_.lie_below(entry.path) || !native_names(entry.path, names_)) return;
  if (tree_.enter(names_, Make::none) == ENOENT) above_.insert(entry.path);
}

// `/C` and the volume `C:` would be restored to one place. The one that comes first keeps it.
bool Job_Restorer::has_its_place(const Job_Entry& entry, std::string& why) {
  if (names_.empty() || names_[0].size() != 1) return true;
  const std::string volume = entry.path.substr(0, entry.path.find('\\'));
  const std::string& first = volumes_.try_emplace(names_[0], volume).first->second;
  if (first == volume) return true;
  why = "its place has the volume '" + first + "': restore it by itself";
  return false;
}

// Goes to the directory that an entry is or lies in; names_ are those of the entry then.
bool Job_Restorer::enter(const Job_Entry& entry, bool is_directory, Make make) {
  if (!native_names(entry.path, names_)) return fail(entry, "not a path of a volume"), false;
  std::string why;
  if (!has_its_place(entry, why)) {
    if (make != Make::none) fail(entry, why);
    return false;
  }
  std::vector<std::string> directory = names_;
  if (!is_directory) directory.pop_back();
  const int error = tree_.enter(directory, make);
  if (error == 0) return true;
  if (make != Make::none)
    fail(entry, std::string("its directory can't be made: ") + std::strerror(error));
  return false;
}

// A directory whose rights are known must not be open to others while it is filled.
void Job_Restorer::restore_directory(const Tree_Entry& item) {
  if ((!item.placed && !is_place_right()) || item.again) return;
  const Job_Entry& entry = item.entry;
  Media_Block block;
  Content content;
  std::string why;
  Media_File* media = find_block(item, block, why);
  const bool is_described = media != nullptr && read_description(*media, block, content, why);
  if (!is_described) fail(entry, "its attributes: " + why);
  if (enter(entry, true, content.stat ? Make::closed : Make::shared)) ++summary_.directories;
  if (!is_described || kept_size_ >= most_kept) return;
  const Kept_Attributes& kept = kept_[entry.path] = {std::move(content), block_mtime(block.view)};
  kept_size_ += kept.memory() + entry.path.size();
}

// The names of directories tell where files belong, so one that is needed is held against its
// block.
bool Job_Restorer::is_place_right() {
  const Tree_Entry& directory = place_.directory;
  if (directory.entry.type != block_dirb || place_.checked) return place_.right;
  Media_Block block;
  std::string why;
  place_.checked = true;
  place_.right = find_block(directory, block, why) != nullptr;
  if (!place_.right) return fail(directory.entry, why), false;
  place_.id = block.view.get<unsigned int>(dirb_at::directory_id);
  return true;
}

// The blocks of a media tell it too, but only of those that stand on the same one.
bool Job_Restorer::is_in_last_directory(const Job_Entry& entry, const Media_Block& block) const {
  return entry.seq == job_.seq && place_.id != 0 &&
         block.view.get<unsigned int>(file_at::directory_id) == place_.id;
}

bool Job_Restorer::is_directory_known(const Tree_Entry& item, const Media_Block& block) {
  const Job_Entry& entry = item.entry;
  if (item.placed || !place_.fault_since || is_in_last_directory(entry, block)) return true;
  return failed(entry, "its directory can't be told from the catalog");
}

void Job_Restorer::restore_entry(const Tree_Entry& item) {
  const Job_Entry& entry = item.entry;
  if (!item.placed && !is_place_right()) return fail(entry, "its directory isn't known");
  std::string why;
  Media_Block block;
  if (find_block(item, block, why) == nullptr) return fail(entry, why);
  if (!is_directory_known(item, block) || !restore_as(item, entry)) return;
  if (may_be_first(item)) note_restored(entry.path);
}

// Notes the entry restored last as the one that further names of `first` lead to.
void Job_Restorer::note_restored(const std::string& first) {
  First_Name& to = first_names_[first];
  if (tree_.identify(names_.back(), to.identity) == 0) to.names = names_;
}

// A file of which no name was restored yet comes back under this one.
void Job_Restorer::restore_further_name(const Tree_Entry& item) {
  const Job_Entry& entry = item.entry;
  if (!item.placed && !is_place_right()) return fail(entry, "its directory isn't known");
  std::string why;
  Media_Block block;
  Content content;
  Media_File* media = find_block(item, block, why);
  if (media == nullptr || !read_description(*media, block, content, why)) return fail(entry, why);
  if (!is_directory_known(item, block)) return;
  const auto first = first_names_.find(content.target);
  if (first == first_names_.end()) return fail(entry, "its first name isn't in the job");
  if (first->second.names.empty()) {
    if (restore_as(first->second.item, entry)) note_restored(first->first);
    return;
  }
  if (!enter(entry, false, Make::closed)) return;
  const int error =
      tree_.make_further_name(first->second.names, first->second.identity, names_.back());
  if (error == 0) {
    ++summary_.files;
  } else if (restore_as(first->second.item, entry)) {
    tell(entry, std::string("restored as a file of its own: ") + std::strerror(error));
  }
}

// Gives `entry` the content that belongs to `content`, itself or a first name.
bool Job_Restorer::restore_as(const Tree_Entry& content, const Job_Entry& entry) {
  std::string why;
  Media_Block block;
  Media_File* media = find_block(content, block, why);
  if (media == nullptr) return failed(entry, why);
  if (!enter(entry, false, Make::closed)) return false;
  if (content.entry.type != block_file) {
    Content found;
    if (!read_description(*media, block, found, why)) return failed(entry, why);
    return restore_node(found, entry, block_mtime(block.view));
  }
  const int error = tree_.create();
  if (error != 0) return failed(entry, std::strerror(error));
  if (write_content(*media, block, entry)) return true;
  tree_.discard();
  return false;
}

// A link, device or FIFO.
bool Job_Restorer::restore_node(const Content& content, const Job_Entry& entry, long long mtime) {
  platform::Restore_Attributes attributes = attributes_of(content);
  attributes.exact_acl = true;
  attributes.mtime = mtime;
  const int error =
      content.target.empty()
          ? tree_.make_node(names_.back(), static_cast<unsigned int>(content.stat->mode),
                            content.stat->rdev, attributes)
          : tree_.make_link(names_.back(), content.target, attributes);
  if (error != 0) return failed(entry, std::strerror(error));
  ++summary_.files;
  tell_left_out(entry);
  return true;
}

// The block of an entry, and the media that it stands on; null, with `why` set, if it isn't there.
Media_File* Job_Restorer::find_block(const Tree_Entry& item, Media_Block& block, std::string& why) {
  const Job_Entry& entry = item.entry;
  Media_File* media = media_of(entry, why);
  if (media == nullptr || !media->find_block(entry.address, entry.type, block, why)) return nullptr;
  // A host may give a directory any size.
  const bool sized = entry.type == block_dirb || block.view.header.displayable_size == entry.size;
  if (sized && name_of(media->window(), block) == item.name) return media;
  why = std::string("its block is that of another ") +
        (entry.type == block_dirb ? "directory" : "file");
  return nullptr;
}

Media_File* Job_Restorer::media_of(const Job_Entry& entry, std::string& why) {
  Earlier_Media& medias =
      medias_.try_emplace(entry.channel, store_, job_.stem, entry.channel).first->second;
  return medias.find(entry.seq, why);
}

bool Job_Restorer::write_content(Media_File& media, const Media_Block& block,
                                 const Job_Entry& entry) {
  int error = 0;
  const Content_Sink sink = [&](unsigned long long offset, const char* data, std::size_t size) {
    error = tree_.write_at(offset, data, size);
    return error == 0;
  };
  Content content;
  std::string why;
  if (!Content_Reader(media, sink).read(block, content, why)) {
    fail(entry, error != 0 ? std::strerror(error) : why);
    return false;
  }
  platform::Restore_Attributes attributes = attributes_of(content);
  attributes.mtime = block_mtime(block.view);
  error = tree_.finish(names_.back(), attributes);
  if (error != 0) {
    fail(entry, std::strerror(error));
    return false;
  }
  ++summary_.files;
  summary_.bytes += content.length;
  tell_left_out(entry);
  if (!content.left_out.empty()) tell(entry, "restored without its streams " + content.left_out);
  return true;
}

// A directory's time changes with each entry that it gets, and its mode may close it. So a second
// walk finishes the directories when all is there, each behind those below it.
void Job_Restorer::finish_directories() {
  const Fault_Sink told_already;
  std::vector<Tree_Entry> open;
  const auto close_down_to = [&](const std::string* path) {
    while (!open.empty() && (path == nullptr || !is_below(*path, open.back().entry.path))) {
      finish_directory(open.back());
      open.pop_back();
    }
  };
  const auto on_entry = [&](const Tree_Entry& item) {
    if (item.entry.type != block_dirb || item.again) return;
    if (!wanted_.take(item.entry.path) && above_.count(item.entry.path) == 0) return;
    close_down_to(&item.entry.path);
    open.push_back(item);
  };
  walk_tree(store_, job_, options_.from_media, on_entry, told_already);
  close_down_to(nullptr);
}

// Why the attributes of a wanted directory can't be read has been told already.
void Job_Restorer::finish_directory(const Tree_Entry& item) {
  const Job_Entry& entry = item.entry;
  Media_Block block;
  std::string why;
  if (!enter(entry, true, Make::none)) return;
  const auto kept = kept_.find(entry.path);
  if (kept != kept_.end()) return set_attributes(entry, kept->second);
  Media_File* media = find_block(item, block, why);
  Kept_Attributes read;
  if (media == nullptr || !read_description(*media, block, read.content, why)) {
    read.content = {};
    if (above_.count(entry.path) != 0) fail(entry, "its attributes: " + why);
  }
  if (media == nullptr) return;
  read.mtime = block_mtime(block.view);
  set_attributes(entry, read);
}

void Job_Restorer::set_attributes(const Job_Entry& entry, const Kept_Attributes& kept) {
  platform::Restore_Attributes attributes = attributes_of(kept.content);
  if (kept.mtime != 0) attributes.mtime = kept.mtime;
  const int error = tree_.finish_directory(attributes);
  if (error != 0) fail(entry, std::string("its attributes can't be set: ") + std::strerror(error));
  tell_left_out(entry);
}

}  // namespace

Restore_Summary restore_job(IPiece_Store& store, const Job_Pieces& job,
                            const Restore_Options& options, const Fault_Sink& on_fault,
                            const Problem_Sink& on_problem) {
  return Job_Restorer(store, job, options, on_fault, on_problem).run();
}

}  // namespace MTF
