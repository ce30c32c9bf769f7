// The data of one stream, plain or in compression frames.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "mtf/reader/piece_window.h"
#include "mtf/reader/stream_view.h"

namespace MTF {

// Takes what is wrong at a position of the piece that is being read.
using Fault_At = std::function<void(unsigned long long position, const std::string& text)>;

// Takes the data of a stream in order, expanded. False ends the giving, not the reading.
using Data_Sink = std::function<bool(const char* data, std::size_t size)>;

// What the reading of a stream's data found.
struct Stream_Data {
  unsigned long long end = 0;  // position behind the stored data, or where it can't be followed
  unsigned int checksum = 0;   // over the stored bytes, frame headers included
  bool intact = true;          // every byte could be read and expanded
};

// Follows the reading of a stream whose data is looked up later.
struct Stream_Watch {
  // Takes the place of each compression frame and the byte of the expanded data where it starts.
  std::function<void(unsigned long long position, unsigned long long offset)> on_frame;
  // Asked again and again, if it is set; false ends the reading, with no fault.
  std::function<bool()> go_on;
};

// Reads streams of one piece. Its memory is that of the largest frame.
class Stream_Data_Reader {
 public:
  // Keeps both references.
  Stream_Data_Reader(Piece_Window& window, const Fault_At& on_fault)
      : window_(window), on_fault_(on_fault) {}

  // Reads the data of the stream `header`, which starts at `position`, and gives it to `sink`,
  // which may be empty. False if it can't be told where the stream ends; every fault has been
  // reported.
  bool read(const Stream_Header& header, unsigned long long position, const Data_Sink& sink,
            Stream_Data& out);

  // The same, but reads only what tells where the stream ends: nothing of plain data, the headers
  // of frames. So `out` is not intact and has no checksum.
  bool skip(const Stream_Header& header, unsigned long long position, Stream_Data& out);

  // With a watch, which is kept until null is given, a frame that no sink asks for isn't expanded.
  void set_watch(const Stream_Watch* watch) { watch_ = watch; }

 private:
  struct Frames;

  bool go_on() const { return watch_ == nullptr || !watch_->go_on || watch_->go_on(); }
  bool read_plain(const Stream_Header& header, unsigned long long position, const Data_Sink& sink,
                  Stream_Data& out);
  bool read_frames(const Stream_Header& header, unsigned long long position, const Data_Sink& sink,
                   Stream_Data& out);
  bool runs_out(const Stream_Header& header, unsigned long long position);
  bool next_frame(Frames& state, Frame_Header& frame);
  bool check_frame(const Frame_Header& frame, Frames& state);
  bool give_frame(const Frame_Header& frame, const char* stored, Frames& state);

  Piece_Window& window_;
  const Fault_At& on_fault_;
  const Stream_Watch* watch_ = nullptr;
  std::vector<char> expanded_;
};

// Why a frame can't be the next one of a stream that has `left` bytes to come; null if it can.
const char* frame_fault(const Frame_Header& frame, unsigned long long left);

}  // namespace MTF
