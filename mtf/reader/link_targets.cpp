#include <map>
#include <utility>

#include "mtf/reader/content_reader.h"
#include "mtf/reader/earlier_media.h"
#include "mtf/reader/jobs.h"
#include "mtf/reader/link_view.h"

namespace MTF {

struct Link_Targets::Medias {
  Earlier_Media& of(unsigned long long channel) {
    return by_channel.try_emplace(channel, store, job.stem, channel).first->second;
  }

  bool read(const Job_Entry& entry, Content& content, std::string& why) {
    Media_File* media = of(entry.channel).find(entry.seq, why);
    Media_Block block;
    return media != nullptr && media->find_block(entry.address, entry.type, block, why) &&
           read_description(*media, block, content, why);
  }

  IPiece_Store& store;
  const Job_Pieces& job;
  std::map<unsigned long long, Earlier_Media> by_channel;
};

Link_Targets::Link_Targets(IPiece_Store& store, const Job_Pieces& job)
    : medias_(new Medias{store, job, {}}) {}

Link_Targets::~Link_Targets() = default;

bool Link_Targets::find(const Job_Entry& entry, std::string& target, std::string& why) {
  Content content;
  if (!medias_->read(entry, content, why)) return false;
  target = content.target;
  return true;
}

bool Link_Targets::find_kind(const Job_Entry& entry, Device_Kind& kind, std::string& why) {
  Content content;
  if (!medias_->read(entry, content, why)) return false;
  const unsigned long long type = content.stat ? content.stat->mode & mode_type_mask : 0;
  for (const auto& [number, word] : {std::pair{0x1000U, Device_Kind::fifo},
                                     {0x2000U, Device_Kind::character},
                                     {0x6000U, Device_Kind::block}}) {
    if (type != number) continue;
    kind = word;
    return true;
  }
  why = "its mode isn't that of a device";
  return false;
}

}  // namespace MTF
