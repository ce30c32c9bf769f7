#include "mtf/reader/view_medias.h"

#include "services/piece_name.h"

namespace MTF {
namespace {

constexpr std::size_t most_idle = 16;

}  // namespace

View_Medias::Loan View_Medias::lend(unsigned int seq, unsigned long long channel,
                                    std::string& why) {
  const auto back = [this, seq, channel](Media_File* media) { give_back(seq, channel, media); };
  const std::lock_guard<std::mutex> lock(mutex_);
  for (auto each = idle_.begin(); each != idle_.end(); ++each) {
    if (each->seq != seq || each->channel != channel) continue;
    Loan loan(each->media.release(), back);
    idle_.erase(each);
    return loan;
  }
  std::string piece;
  mtf_name(stem_, seq, channel, piece);
  std::unique_ptr<Media_File> media = Media_File::open(store_, piece, why);
  if (media == nullptr) why = "media " + piece + ": " + why;
  return Loan(media.release(), back);
}

void View_Medias::give_back(unsigned int seq, unsigned long long channel, Media_File* media) {
  std::unique_ptr<Media_File> owned(media);
  const std::lock_guard<std::mutex> lock(mutex_);
  idle_.push_front({seq, channel, std::move(owned)});
  if (idle_.size() > most_idle) idle_.pop_back();
}

}  // namespace MTF
