// The content of a file of a job, at any position.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "mtf/reader/content_map.h"
#include "mtf/reader/piece_window.h"
#include "mtf/reader/view_tree.h"

namespace MTF {

class Job_View;

// Before its first byte is given the whole content is read once and all its checksums are compared,
// as a restore does; so no byte of a damaged file is ever given. A small file is held from then on,
// of a larger one the places of its ranges and of its compression frames: a read then costs what it
// asks for, and no more than a frame beside it. May be used by several threads.
class View_File {
 public:
  // The view must outlive it.
  View_File(Job_View& view, View_Tree::Number number);

  View_Tree::Number number() const { return number_; }

  // Reads up to `size` bytes from `offset`; fewer only at the end of the file. -1 on failure, with
  // `why` set. While the content is checked `go_on` is asked again and again, and false ends the
  // call with -1 and an empty `why`.
  long long read(unsigned long long offset, char* data, std::size_t size,
                 const std::function<bool()>& go_on, std::string& why);

  // Finds the first byte from `offset` on that lies in a stretch of data, or in a hole if `hole` is
  // set; the end of the file counts as a hole. False, as read() fails, or with `out` set to the
  // size where there is none.
  bool seek(unsigned long long offset, bool hole, const std::function<bool()>& go_on,
            unsigned long long& out, std::string& why);

  // True for a file that is held once it has been checked.
  bool is_small() const { return is_small_; }

 private:
  struct Frame {
    const Content_Range* range = nullptr;  // null for none
    unsigned long long end = 0;            // position behind it
    unsigned long long offset = 0;         // in the expanded data of the stream
    std::vector<char> data;
  };

  bool check(const std::function<bool()>& go_on, std::string& why);
  bool load_small(std::string& why);
  bool load_map(const std::function<bool()>& go_on, std::string& why);
  long long read_range(const Content_Range& range, unsigned long long at, char* data,
                       std::size_t size, std::string& why);
  bool load_frame(Piece_Window& window, const Content_Range& range, unsigned long long at,
                  std::string& why);
  bool expand(Piece_Window& window, unsigned long long position, const Frame_Header& header,
              unsigned short method, std::string& why);

  Job_View& view_;
  const View_Tree::Number number_;
  const unsigned long long size_;
  std::mutex mutex_;  // of all below, until checked_ is set; of frame_ always
  bool checked_ = false;
  bool is_small_ = false;
  std::string small_;
  Content_Map map_;
  Frame frame_;
};

}  // namespace MTF
