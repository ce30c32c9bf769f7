#include <map>

#include "mtf/reader/content_reader.h"
#include "mtf/reader/earlier_media.h"
#include "mtf/reader/jobs.h"

namespace MTF {

struct Link_Targets::Medias {
  Earlier_Media& of(unsigned long long channel) {
    return by_channel.try_emplace(channel, store, job.stem, channel).first->second;
  }

  IPiece_Store& store;
  const Job_Pieces& job;
  std::map<unsigned long long, Earlier_Media> by_channel;
};

Link_Targets::Link_Targets(IPiece_Store& store, const Job_Pieces& job)
    : medias_(new Medias{store, job, {}}) {}

Link_Targets::~Link_Targets() = default;

bool Link_Targets::find(const Job_Entry& entry, std::string& target, std::string& why) {
  Media_File* media = medias_->of(entry.channel).find(entry.seq, why);
  Media_Block block;
  Content content;
  if (media == nullptr || !media->find_block(entry.address, entry.type, block, why) ||
      !read_description(*media, block, content, why)) {
    return false;
  }
  target = content.target;
  return true;
}

}  // namespace MTF
