// The medias of a chain of jobs, opened as entries point at them.
#pragma once

#include <list>
#include <memory>
#include <string>

#include "mtf/reader/media_file.h"

namespace MTF {

// The medias of one channel. Keeps a few of them open.
class Earlier_Media {
 public:
  // Keeps the reference.
  Earlier_Media(IPiece_Store& store, const std::string& stem, unsigned long long channel)
      : store_(store), stem_(stem), channel_(channel) {}

  // The media of job `seq`; null, with `why` set, if it can't be opened. Owned here, valid until
  // the next call.
  Media_File* find(unsigned int seq, std::string& why);

  // The piece name of the media of job `seq`.
  std::string name(unsigned int seq) const;

 private:
  struct Open_Media {
    unsigned int seq;
    std::unique_ptr<Media_File> file;  // null for one that can't be opened
    std::string why;
  };

  IPiece_Store& store_;
  std::string stem_;
  unsigned long long channel_;
  std::list<Open_Media> open_;  // the one used last is the first
};

}  // namespace MTF
