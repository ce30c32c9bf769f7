#include <cstring>

#include "mtf/reader/content_reader.h"
#include "mtf/reader/earlier_media.h"
#include "mtf/reader/media_tree.h"
#include "platform/restore_tree.h"
#include "platform/stat.h"

namespace MTF {
namespace {

// Finds the first entry of pre-action data; false if there is none.
bool find_entry(IPiece_Store& store, const Job_Pieces& job, bool from_media,
                const Fault_Sink& on_fault, Job_Entry& out) {
  bool found = false;
  const auto take = [&](const Tree_Entry& item) {
    if (found || item.entry.type != block_pdat) return;
    out = item.entry;
    found = true;
  };
  walk_tree(store, job, from_media, take, on_fault);
  return found;
}

// A device or a pipe in place of the file would be lost.
bool may_replace(const std::string& file) {
  _stat64 stat;
  return platform::stat_link_native(file, stat) != 0 || (stat.st_mode & 0xF000) == 0x8000;
}

// Opens the directory that `file` lies in and gives the name below it.
int open_directory(const std::string& file, platform::Restore_Tree& tree, std::string& name) {
  const std::size_t slash = file.rfind('/');
  name = file.substr(slash + 1);
  return tree.open(slash == std::string::npos ? "." : file.substr(0, slash + 1));
}

}  // namespace

bool restore_pre_action(IPiece_Store& store, const Job_Pieces& job, const std::string& file,
                        unsigned long long& bytes, const Fault_Sink& on_fault, std::string& why,
                        bool from_media) {
  Job_Entry entry;
  if (!find_entry(store, job, from_media, on_fault, entry)) return why = "the job has none", false;
  Earlier_Media medias(store, job.stem, entry.channel);
  Media_File* media = medias.find(entry.seq, why);
  Media_Block block;
  if (media == nullptr || !media->find_block(entry.address, block_pdat, block, why)) return false;
  if (!may_replace(file)) return why = "it is no regular file", false;
  platform::Restore_Tree tree;
  std::string name;
  int error = open_directory(file, tree, name);
  if (error == 0) error = tree.create();
  if (error != 0) return why = std::strerror(error), false;
  const Content_Sink sink = [&](unsigned long long offset, const char* data, std::size_t size) {
    error = tree.write_at(offset, data, size);
    return error == 0;
  };
  Content content;
  bool done = Content_Reader(*media, sink).read(block, content, why);
  platform::Restore_Attributes attributes;
  attributes.length = bytes = content.length;
  if (done) done = (error = tree.finish(name, attributes)) == 0;
  if (error != 0) why = std::strerror(error);
  return done;
}

}  // namespace MTF
