#include "mtf/reader/job_viewer.h"

#include <algorithm>

#include "mtf/reader/block_loader.h"
#include "mtf/reader/content_reader.h"
#include "mtf/reader/link_view.h"
#include "mtf/reader/security_view.h"
#include "mtf/reader/tree_place.h"
#include "platform/native_path.h"

namespace MTF {
namespace {

constexpr std::size_t most_known = 0x4000;
constexpr unsigned long long most_known_bytes = 0x1000000;
constexpr std::size_t most_files = 16;

// The native path that the name of a block means below its volume, or below its directory.
bool native_text(const Block_Header& header, const std::string& name, std::string& out) {
  std::string text;
  if (!tree_text(header.type, header.string_type, name, text)) return false;
  out.clear();
  for (std::size_t start = 0, end = 0; end != std::string::npos; start = end + 1) {
    end = text.find('\\', start);
    out += '/' + platform::native_name(text.substr(start, end - start));
  }
  return true;
}

std::shared_ptr<View_Attributes> attributes_of(const Content& content, unsigned int type) {
  auto attributes = std::make_shared<View_Attributes>();
  if (content.stat) {
    constexpr unsigned int permission_bits = 07777;
    attributes->owner = {content.stat->uid, content.stat->gid,
                         static_cast<unsigned int>(content.stat->mode) & permission_bits};
    if (type == block_devb) {
      attributes->node_type = static_cast<unsigned int>(content.stat->mode & mode_type_mask);
      attributes->rdev = content.stat->rdev;
    }
  }
  attributes->target = content.target;
  std::vector<Extended_Attribute> extended;
  if (!content.attributes.empty()) read_attributes(content.attributes, extended);
  for (Extended_Attribute& each : extended) {
    attributes->extended.emplace_back(std::move(each.name), each.value);
  }
  return attributes;
}

unsigned long long memory_of(const View_Attributes& attributes) {
  unsigned long long bytes = sizeof attributes + attributes.target.size();
  for (const auto& [name, value] : attributes.extended) bytes += name.size() + value.size();
  return bytes;
}

}  // namespace

std::shared_ptr<Job_View> Job_View::open(IPiece_Store& store, const Job_Pieces& job,
                                         const Fault_Sink& on_fault,
                                         const Problem_Sink& on_problem) {
  const auto view = std::make_shared<Job_Viewer>(store, job);
  view->build(store, on_fault, on_problem);
  return view;
}

std::shared_ptr<const View_Attributes> Job_Viewer::attributes(View_Tree::Number number,
                                                              std::string& why) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto place = places_.find(number);
    if (place != places_.end()) {
      known_.splice(known_.begin(), known_, place->second);
      return known_.front().attributes;
    }
  }
  const bool further = tree_.node(number).type == block_hlnk;
  auto loaded = further ? load_further(number, why) : load(number, why);
  if (loaded != nullptr) remember(number, loaded);
  return loaded;
}

void Job_Viewer::remember(View_Tree::Number number,
                          const std::shared_ptr<const View_Attributes>& attributes) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (places_.count(number) != 0) return;
  known_.push_front({number, attributes});
  places_[number] = known_.begin();
  known_bytes_ += memory_of(*attributes);
  while (known_.size() > most_known || (known_bytes_ > most_known_bytes && known_.size() > 1)) {
    known_bytes_ -= memory_of(*known_.back().attributes);
    places_.erase(known_.back().number);
    known_.pop_back();
  }
}

// Its block must lead to the first name that the catalogs give it.
std::shared_ptr<const View_Attributes> Job_Viewer::load_further(View_Tree::Number number,
                                                                std::string& why) {
  Content content;
  {
    Media_Block block;
    const View_Medias::Loan media = find_block(number, block, why);
    if (media == nullptr || !read_description(*media, block, content, why)) return nullptr;
  }
  const View_Tree::Number first = tree_.node(number).first;
  if (first != View_Tree::root && tree_.find(content.target) == first) {
    return attributes(first, why);
  }
  why = "its first name isn't in the job";
  return nullptr;
}

std::shared_ptr<const View_Attributes> Job_Viewer::load(View_Tree::Number number,
                                                        std::string& why) {
  const View_Node& node = tree_.node(number);
  if (node.seq == 0) return std::make_shared<View_Attributes>();  // no catalog says more
  Media_Block block;
  const View_Medias::Loan media = find_block(number, block, why);
  if (media == nullptr) return nullptr;
  const Content_Sink no_sink;
  Content content;
  if (!Content_Reader(*media, no_sink).describe(block, content, why)) return nullptr;
  if (node.type == block_devb && !is_node_mode(content.stat->mode)) {
    why = "its block doesn't say what device it is of";
    return nullptr;
  }
  const std::shared_ptr<View_Attributes> attributes = attributes_of(content, node.type);
  const long long atime = mtf_date_time_to_time(
      reinterpret_cast<const unsigned char*>(block.view.date(file_at::last_access_date).data()));
  attributes->mtime = block_mtime(block.view);
  attributes->atime = atime != 0 ? atime : attributes->mtime;
  if (node.is_directory) return attributes;
  attributes->names += node.further;
  attributes->size = node.type == block_slnk ? content.target.size() : node.size;
  attributes->space = node.space * space_unit;
  return attributes;
}

// The block of an entry and the media that it stands on; null, with `why` set, if it isn't there.
View_Medias::Loan Job_Viewer::find_block(View_Tree::Number number, Media_Block& block,
                                         std::string& why) {
  const View_Node& node = tree_.node(number);
  View_Medias::Loan media = medias_.lend(node.seq, node.channel, why);
  if (media == nullptr || !media->find_block(node.address, node.type, block, why)) return nullptr;
  if (!is_block_of(number, *media, block)) {
    why = std::string("its block is that of another ") + (node.is_directory ? "directory" : "file");
    return nullptr;
  }
  return is_place_right(number, block, why) ? std::move(media) : nullptr;
}

bool Job_Viewer::is_block_of(View_Tree::Number number, Media_File& media,
                             const Media_Block& block) const {
  const View_Node& node = tree_.node(number);
  std::string text;
  if (!native_text(block.view.header, name_of(media.window(), block), text)) return false;
  if (!node.is_directory) {
    return block.view.header.displayable_size == node.size &&
           text == '/' + std::string(tree_.name(number));
  }
  // The path of a volume `X:` begins with its letter.
  constexpr std::size_t letter = 2;
  const std::string path = tree_.path(number);
  return path == text || (path.size() == letter + text.size() && path.substr(letter) == text);
}

// The names of directories tell where an entry belongs, so that of its own is held against its
// block too. Where the catalog is damaged, the block of the entry must name the directory.
bool Job_Viewer::is_place_right(View_Tree::Number number, const Media_Block& block,
                                std::string& why) {
  const View_Node& node = tree_.node(number);
  const View_Node& parent = tree_.node(node.parent);
  if (node.is_directory || (parent.seq == 0 && !node.uncertain)) return true;
  if (parent.seq != 0 && attributes(node.parent, why) == nullptr) {
    why = "its directory isn't known: " + why;
    return false;
  }
  if (!node.uncertain) return true;
  Media_Block directory;
  const unsigned int id = block.view.get<unsigned int>(file_at::directory_id);
  if (parent.seq == job_.seq && node.seq == job_.seq) {
    const View_Medias::Loan media = find_block(node.parent, directory, why);
    if (media != nullptr && directory.view.get<unsigned int>(dirb_at::directory_id) == id) {
      return true;
    }
  }
  why = "its directory can't be told from the catalog";
  return false;
}

std::shared_ptr<View_File> Job_Viewer::open_file(View_Tree::Number number, std::string& why) {
  const View_Tree::Number content = tree_.content_of(number);
  if (content != number) {
    return attributes(number, why) != nullptr ? open_file(content, why) : nullptr;
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto each = files_.begin(); each != files_.end(); ++each) {
      if ((*each)->number() != number) continue;
      files_.splice(files_.begin(), files_, each);
      return files_.front();
    }
  }
  if (tree_.node(number).type != block_file) return why = "it is no file", nullptr;
  if (attributes(number, why) == nullptr) return nullptr;
  auto file = std::make_shared<Viewed_File>(*this, number);
  if (file->is_small()) return file;
  const std::lock_guard<std::mutex> lock(mutex_);
  files_.push_front(file);
  if (files_.size() > most_files) files_.pop_back();
  return file;
}

}  // namespace MTF
