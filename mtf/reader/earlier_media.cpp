#include "mtf/reader/earlier_media.h"

#include "services/piece_name.h"

namespace MTF {
namespace {

constexpr std::size_t most_open = 16;

}  // namespace

Media_File* Earlier_Media::find(unsigned int seq, std::string& why) {
  for (auto it = open_.begin(); it != open_.end(); ++it) {
    if (it->seq != seq) continue;
    open_.splice(open_.begin(), open_, it);
    why = it->why;
    return it->file.get();
  }
  Open_Media media;
  media.seq = seq;
  media.file = Media_File::open(store_, name(seq), media.why);
  if (media.file == nullptr) media.why = "media " + name(seq) + ": " + media.why;
  why = media.why;
  open_.push_front(std::move(media));
  if (open_.size() > most_open) open_.pop_back();
  return open_.front().file.get();
}

std::string Earlier_Media::name(unsigned int seq) const {
  std::string piece;
  mtf_name(stem_, seq, channel_, piece);
  return piece;
}

}  // namespace MTF
