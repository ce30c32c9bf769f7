// Reads a media where it lies, on a remote.
#pragma once

#include <list>
#include <memory>
#include <string>

#include "agent/rclone.h"
#include "mtf/reader/piece_store.h"

namespace agent {

// A look here and there fetches little more than was asked for, by a call that is served. Whoever
// reads on gets streams; each further one is sixteen times as long. A gap is read over where that
// is cheaper than a new stream. A stream that breaks is begun anew where it broke.
class Remote_Reader final : public MTF::IRandom_Reader {
 public:
  // `rclone` must outlive it.
  Remote_Reader(Rclone& rclone, const std::string& name, unsigned long long size)
      : rclone_(rclone), name_(name), size_(size) {}

  unsigned long long size() const override { return size_; }
  long long read_at(unsigned long long offset, char* data, unsigned long long size) override;

 private:
  // Bytes that are kept, and the stream that goes on behind them.
  struct Stretch {
    unsigned long long start = 0;
    std::string kept;
    std::unique_ptr<platform::Child_Process> stream;
    unsigned long long stream_end = 0;
    unsigned long long next_length = 0;  // of the next stream

    unsigned long long end() const { return start + kept.size(); }
  };

  Stretch& stretch_at(unsigned long long offset);
  bool extend(Stretch& stretch, unsigned long long to);
  bool advance(Stretch& stretch, unsigned long long to, std::string& error);
  bool look(Stretch& stretch, unsigned long long length, std::string& error);
  bool begin_stream(Stretch& stretch, unsigned long long length, std::string& error);
  bool take(Stretch& stretch, std::string& error);
  static void forget(Stretch& stretch, unsigned long long before);

  Rclone& rclone_;
  const std::string name_;
  const unsigned long long size_;
  std::list<Stretch> stretches_;  // the one used last is the first
};

}  // namespace agent
