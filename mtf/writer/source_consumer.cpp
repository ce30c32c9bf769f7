#include "mtf/writer/source_consumer.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "services/text.h"

namespace MTF {

void Source_Consumer::look_ahead_for(std::vector<Look_Ahead*> users, const Block_Paths& paths) {
  paths_ = std::make_unique<Block_Paths>(paths);
  users_ = std::move(users);
}

bool Source_Consumer::next(Cat_Blk& blk) {
  keep_place();
  catalog_block_ = take();
  if (catalog_block_ == nullptr) {
    ACE_ERROR_RETURN((LM_ERROR, ACE_TEXT("Failed to get catalog block from producer, errno=%d\n"),
                      ACE_OS::last_error()),
                     false);
  }
  const Cat_Hdr& hdr = catalog_block_->hdr();
  if (hdr.type() == block_fend) return false;
  if (hdr.checksum() != hdr.calc_checksum()) {
    damaged_ = true;
    ACE_ERROR_RETURN(
        (LM_EMERGENCY,
         ACE_TEXT("Unexpected error in mtf/writer/source_consumer:%d\nFailed to verify "
                  "catalog_block_->hdr() checksum, identifier=%s, offset=%q\n"),
         __LINE__, "(consumer)", ACE_INT64{0}),
        false);
  }
  blk.set_buffer(catalog_block_->data(), hdr.length(), false);
  return true;
}

std::unique_ptr<Cat_Blk> Source_Consumer::take() {
  if (is_wanted()) look_ahead();
  if (ahead_count_ == 0) {
    is_followed_ = false;
    return dequeue();
  }
  std::unique_ptr<Cat_Blk> block = std::move(ahead_[first_ahead_]);
  first_ahead_ = (first_ahead_ + 1) % ahead_.size();
  --ahead_count_;
  for (Look_Ahead* user : users_) user->remove_oldest();
  return block;
}

std::unique_ptr<Cat_Blk> Source_Consumer::dequeue() {
  Cat_Blk* block = nullptr;
  return std::unique_ptr<Cat_Blk>(queue_->dequeue_head(block) != -1 ? block : nullptr);
}

// Each is asked for each block.
bool Source_Consumer::is_wanted() {
  return std::count_if(users_.begin(), users_.end(),
                       [](Look_Ahead* user) { return user->is_wanted(); }) != 0;
}

bool Source_Consumer::has_room() const {
  return ahead_count_ < ahead_.size() &&
         std::all_of(users_.begin(), users_.end(),
                     [](Look_Ahead* user) { return user->has_room(); });
}

// A block that isn't sound ends the job when its turn comes.
void Source_Consumer::look_ahead() {
  if (!is_followed_) find_place();
  while (!is_at_end_ && has_room() && !queue_->is_empty()) {
    std::unique_ptr<Cat_Blk> block = dequeue();
    if (block == nullptr) return;
    const Cat_Hdr& hdr = block->hdr();
    is_at_end_ = hdr.type() == block_fend || hdr.checksum() != hdr.calc_checksum();
    tell(*block);
    ahead_[(first_ahead_ + ahead_count_++) % ahead_.size()] = std::move(block);
  }
}

// Where memory is short the file counts as one that needn't be read.
void Source_Consumer::tell(const Cat_Blk& block) {
  std::string path;
  try {
    paths_->go_to(block);
    if (!paths_->find_file(block, path)) path.clear();
  } catch (const std::exception&) {
    path.clear();
  }
  for (Look_Ahead* user : users_) user->add(path, block.hdr().size());
}

void Source_Consumer::find_place() {
  try {
    if (volume_ != nullptr) paths_->go_to(*volume_);
    if (dir_ != nullptr) paths_->go_to(*dir_);
    is_followed_ = true;
  } catch (const std::exception&) {
    // What it gives for the next files leads nowhere.
  }
}

void Source_Consumer::keep_place() {
  if (users_.empty() || catalog_block_ == nullptr) return;
  const unsigned int type = catalog_block_->hdr().type();
  if (type == block_dirb) {
    dir_ = std::move(catalog_block_);
  } else if (type == block_volb) {
    volume_ = std::move(catalog_block_);
    dir_.reset();
  }
}

}  // namespace MTF
