// How Callback_Source_Producer takes the blocks of a lister of the host's.
#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_time.h>

#include <cstring>
#include <new>

#include "mtf/writer/callback_source_producer.h"
#include "mtf/writer/leaf_name.h"
#include "platform/native_path.h"
#include "services/text.h"

namespace MTF {
namespace {

// A heap block of its own with the bytes of `block`, which is empty afterwards. A view of bytes of
// the lister's doesn't outlive its next call, so these are copied. Null when memory is short.
std::unique_ptr<Cat_Blk> take(Cat_Blk& block) {
  if (block.owns_data()) {
    std::unique_ptr<Cat_Blk> own(new (std::nothrow) Cat_Blk(std::move(block)));
    if (own == nullptr) errno = ENOMEM;
    return own;
  }
  const unsigned int length = block.hdr().length();
  std::unique_ptr<Cat_Blk> copy = Cat_Blk::create<Cat_Blk>(length);
  if (copy == nullptr) return nullptr;
  std::memcpy(copy->data(), block.data(), length);
  block.set_buffer(nullptr, 0, false);
  return copy;
}

// As the walk writes them: the components of a directory with a NUL behind each, a volume of
// slashes alone or of components with a NUL between them.
bool is_queued_name(unsigned int type, const std::string& name) {
  if (type == block_dirb) return name.back() == '\0' && has_leaf_names(name, '\0');
  if (type != block_volb) return is_leaf_name(name);
  return name.find_first_not_of('/') == std::string::npos || has_leaf_names(name, '\0');
}

}  // namespace

bool Callback_Source_Producer::take_listed() {
  Cat_Blk block;
  for (;;) {
    if (!lister_->next(block)) {
      ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to list files from source lister.\n")), false);
    }
    if (const char* fault = fault_of(block)) {
      ACE_ERROR_RETURN(
          (LM_ERROR, ACE_TEXT("Source lister gave a block that can't be saved: %C\n"), fault),
          false);
    }
    if (block.hdr().type() == block_fend) return true;
    if (!put_listed_block(block)) return false;
  }
}

// A block that went on the queue like this would end a media early, or land in another directory
// than the lister's.
const char* Callback_Source_Producer::fault_of(const Cat_Blk& block) const {
  if (block.data() == nullptr || block.capacity() < Cat_Hdr::fixed_size) return "it is empty";
  const Cat_Hdr& hdr = block.hdr();
  if (hdr.length() < Cat_Hdr::fixed_size || hdr.length() > block.capacity()) {
    return "its length is wrong";
  }
  if (hdr.checksum() != hdr.calc_checksum()) return "its checksum is wrong";
  const unsigned int type = hdr.type();
  if (type != block_volb && type != block_dirb && !is_file_like(type)) return nullptr;
  std::string name;
  if (!block_name(block, name)) return "it has no name";
  if (name.size() > MTF_PATH_MAX) return "its name is too long";
  if (!is_queued_name(type, name)) return "its name is none of an entry";
  // One of an earlier job counts as saved there.
  if (hdr.seq() != seq_) return "it is of another job";
  return type == block_volb || has_volume_ ? nullptr : "it comes before any volume";
}

void Callback_Source_Producer::mark_uncertain(Cat_Blk& block) const {
  Cat_File_Blk view;
  view.set_buffer(block);
  if (!is_uncertain(view.time())) return;
  block.hdr().flags(static_cast<unsigned short>(block.hdr().flags() | cat_uncertain));
  block.hdr().checksum(block.hdr().calc_checksum());
}

bool Callback_Source_Producer::put_listed_block(Cat_Blk& block) {
  const unsigned int type = block.hdr().type();
  const unsigned long long size = block.hdr().size();
  bool left_out = false;
  if (save_links_ && !note_link(block, left_out)) return false;
  if (left_out) return true;
  std::unique_ptr<Cat_Blk> own = take(block);
  if (own != nullptr && is_file_like(type) && type != block_hlnk) mark_uncertain(*own);
  if (!put_block(std::move(own)) || !end_directory()) return false;
  if (type == block_volb) {
    has_volume_ = true;
    return put_pre_action(ACE_OS::time());
  }
  if (type == block_dirb) return true;
  if (!is_file_like(type)) return false;
  count_file(size);
  return true;
}

// Follows the lister's way, and keeps the first names of files that have several for the stages
// that come behind.
bool Callback_Source_Producer::note_link(const Cat_Blk& block, bool& left_out) {
  const Cat_Hdr& hdr = block.hdr();
  if (hdr.type() == block_volb || hdr.type() == block_dirb) return note_place(block);
  std::string name;
  if (!is_file_like(hdr.type()) || !block_name(block, name)) return true;
  const std::string full = full_path(name);
  std::string first;
  if (hdr.type() != block_hlnk) {
    return (hdr.flags() & cat_first_link) == 0 || hardlink_map_->add(hdr.ino(), full, seq_);
  }
  if (hardlink_map_->get(hdr.ino(), first)) return true;
  if (callback_->link_target(full.c_str(), first) && !first.empty()) {
    return hardlink_map_->add(hdr.ino(), first, seq_);
  }
  left_out = true;
  ACE_ERROR_RETURN((LM_WARNING, ACE_TEXT("Left out further name of a file '%C'\n"),
                    platform::display_path(full).c_str()),
                   true);
}

bool Callback_Source_Producer::note_place(const Cat_Blk& block) {
  if (block.hdr().type() == block_dirb) {
    Cat_Dir_Blk view;
    view.set_buffer(block);
    return get_name_from_dir(view, '\\', cur_dir_);
  }
  Cat_Vol_Blk view;
  view.set_buffer(block);
  cur_dir_.clear();
  return get_device_from_vol(view, '\\', cur_vol_);
}

}  // namespace MTF
