// The medias of a chain of jobs, for several threads at once.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "mtf/reader/media_file.h"

namespace MTF {

// Lends an open media to one thread at a time, and keeps a few that nobody uses for the next one.
class View_Medias {
 public:
  // Keeps the reference.
  View_Medias(IPiece_Store& store, const std::string& stem) : store_(store), stem_(stem) {}

  // Goes back when it is destroyed, which must be before this object is.
  using Loan = std::unique_ptr<Media_File, std::function<void(Media_File*)>>;

  // The media of a channel of job `seq`; null, with `why` set, if it can't be opened.
  Loan lend(unsigned int seq, unsigned long long channel, std::string& why);

 private:
  void give_back(unsigned int seq, unsigned long long channel, Media_File* media);

  struct Idle {
    unsigned int seq;
    unsigned long long channel;
    std::unique_ptr<Media_File> media;
  };

  IPiece_Store& store_;
  const std::string stem_;
  std::mutex mutex_;
  std::list<Idle> idle_;  // the one used last is the first
};

}  // namespace MTF
